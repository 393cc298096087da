#include "vectors/Facts.h"

#include <filesystem>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "Corvane/File/ChunkFileLayout.h"
#include "Corvane/File/DataChunkFileAppender.h"
#include "Corvane/File/DataChunkFileReader.h"
#include "Corvane/File/DataChunkFileScanner.h"
#include "support/Files.h"
#include "support/LogCapture.h"
#include "support/Records.h"

namespace vectors {

namespace {

using Corvane::File::DataChunkFileAppender;
using Corvane::File::DataChunkFileReader;
using Corvane::File::DataChunkFileScanner;
using Corvane::File::kHeaderSize;
using Corvane::Pellin::DataChunk;

std::string TextOf(DataChunkFileScanner::End end)
{
    switch (end) {
        case DataChunkFileScanner::End::AllRead:
            return "all read";
        case DataChunkFileScanner::End::BadRecord:
            return "bad record";
        case DataChunkFileScanner::End::EndOfFile:
            return "end of file";
    }
    throw std::logic_error("no such end");
}

Facts FactsByScanner(const std::string& path)
{
    DataChunkFileScanner scanner(path);
    Facts facts;
    facts.size = std::filesystem::file_size(path);
    facts.version = scanner.GetVersion();
    facts.count = scanner.GetNumberOfChunks();
    while (scanner.Next()) {
        const DataChunk& chunk = scanner.GetChunk();
        facts.records.push_back(
            {scanner.GetPosition(), chunk.GetSizeOnFile(), chunk.GetTimePoint().Nanoseconds(), chunk.Fields()});
    }
    facts.walk = {scanner.GetNumberRead(), TextOf(scanner.GetEnd()), scanner.GetPosition()};
    return facts;
}

// A walk by the reader, which itself does not say why it ends.
template <typename Fetch>
WalkFacts WalkByReader(const DataChunkFileReader& reader, std::uint64_t fileSize, const Fetch& fetch)
{
    WalkFacts facts = {0, "all read", kHeaderSize};
    for (; facts.records < reader.GetNumberOfChunks(); ++facts.records) {
        DataChunk chunk;
        if (fetch(chunk, facts.position) == 0) {
            facts.end = facts.position < fileSize ? "bad record" : "end of file";
            break;
        }
        facts.position += chunk.GetSizeOnFile();
    }
    return facts;
}

std::string ReasonOf(const std::string& error)
{
    for (const auto& [text, reason] : {std::pair("16is the minimum", "shorter than 16 bytes"),
                                       std::pair("is greater than specified size", "longer than the maximum size"),
                                       std::pair("is stored with version", "version")}) {
        if (error.find(text) != std::string::npos) {
            return reason;
        }
    }
    throw std::runtime_error(error);
}

// The number that follows the first of these texts that a line has.
std::uint64_t NumberAfter(const std::vector<std::string>& texts, const support::Lines& lines)
{
    for (const std::string& text : texts) {
        for (const std::string& line : lines) {
            if (const std::size_t at = line.find(text); at != std::string::npos) {
                return std::stoull(line.substr(at + text.size()));
            }
        }
    }
    throw std::logic_error("no line says " + texts.front());
}

// A chunk that a bounded image refuses and an unbounded one accepts. No file holds its time point.
DataChunk ChunkToAppend(std::uint64_t maxSize)
{
    DataChunk chunk(Corvane::Time::TimePoint(-987'654'321));
    chunk.Set("appended", std::string(maxSize, 'a'));
    return chunk;
}

// Changes the file.
ReopeningFacts FactsOfReopening(const std::string& path, std::uint64_t maxSize)
{
    ReopeningFacts facts = {maxSize, {}};
    const support::LogCapture log(20);
    const DataChunk chunk = ChunkToAppend(maxSize);
    bool accepted = false;
    try {
        accepted = DataChunkFileAppender(path, true, maxSize).Append(chunk);
    } catch (const std::runtime_error& error) {
        facts.refused = ReasonOf(error.what());
        return facts;
    }
    const support::Lines lines = log.Lines();
    facts.kept = NumberAfter({"40 Chunk ", ": we discovered "}, lines);
    facts.next =
        accepted ? support::ReadFile(path).find(support::RecordOf(chunk)) : NumberAfter({"Current file size "}, lines);
    return facts;
}

std::string HexOf(const std::string& bytes)
{
    std::ostringstream hex;
    for (const char byte : bytes) {
        hex << std::hex << std::setw(2) << std::setfill('0') << int{static_cast<unsigned char>(byte)};
    }
    return '"' + hex.str() + '"';
}

std::string JsonOf(const RecordFacts& record)
{
    std::string fields;
    for (const auto& [name, value] : record.fields) {
        fields += (fields.empty() ? "" : ", ") + HexOf(name) + ": " + HexOf(value);
    }
    return "{\"position\": " + std::to_string(record.position) + ", \"size\": " + std::to_string(record.size) +
           ", \"time\": \"" + std::to_string(record.time) + "\", \"fields\": {" + fields + "}}";
}

std::string JsonOf(const WalkFacts& end)
{
    return "{\"records\": " + std::to_string(end.records) + ", \"end\": \"" + end.end +
           "\", \"position\": " + std::to_string(end.position) + "}";
}

std::string JsonOf(const ReopeningFacts& reopening)
{
    const std::string result = reopening.refused.empty() ? "\"kept\": " + std::to_string(reopening.kept) +
                                                               ", \"next\": " + std::to_string(reopening.next)
                                                         : "\"refused\": \"" + reopening.refused + '"';
    return "{\"max_size\": " + std::to_string(reopening.maxSize) + ", " + result + "}";
}

// One element a line.
template <typename Element>
std::string JsonOf(const std::vector<Element>& elements)
{
    std::string lines;
    for (const Element& element : elements) {
        lines += (lines.empty() ? "\n    " : ",\n    ") + JsonOf(element);
    }
    return '[' + lines + ']';
}

}  // namespace

std::vector<std::uint64_t> MaxSizesFor(std::uint64_t size)
{
    return size < 2 ? std::vector<std::uint64_t>{0, 64} : std::vector<std::uint64_t>{0, size - 1, size, size + 64};
}

Facts FactsByLibrary(const std::string& path)
{
    Facts facts = FactsByScanner(path);
    DataChunkFileReader reader(path);
    const WalkFacts walk = WalkByReader(reader, facts.size, [&reader](DataChunk& chunk, std::uint64_t position) {
        return reader.GetChunk(chunk, position);
    });
    if (JsonOf(walk) != JsonOf(facts.walk)) {
        throw std::logic_error(path + ": the scanner finds " + JsonOf(facts.walk) + ", the reader " + JsonOf(walk));
    }
    facts.walkOfLoad = WalkByReader(reader, facts.size, [&reader](DataChunk& chunk, std::uint64_t position) {
        return reader.GetChunk(chunk, position, {"load"});
    });
    for (const std::uint64_t maxSize : MaxSizesFor(facts.size)) {
        const std::string copy = path + ".reopened";
        std::filesystem::copy_file(path, copy, std::filesystem::copy_options::overwrite_existing);
        facts.reopenings.push_back(FactsOfReopening(copy, maxSize));
        std::filesystem::remove(copy);
    }
    return facts;
}

std::string JsonOf(const Facts& facts)
{
    return "  \"size\": " + std::to_string(facts.size) + ",\n  \"version\": \"" + std::to_string(facts.version) +
           "\",\n  \"count\": \"" + std::to_string(facts.count) + "\",\n  \"records\": " + JsonOf(facts.records) +
           ",\n  \"walk\": " + JsonOf(facts.walk) + ",\n  \"walk_of_load\": " + JsonOf(facts.walkOfLoad) +
           ",\n  \"reopening\": " + JsonOf(facts.reopenings);
}

}  // namespace vectors
