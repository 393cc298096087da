#include "vectors/Vectors.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <utility>

#include "ReferenceRecord.h"
#include "support/Chunks.h"
#include "support/Files.h"

namespace vectors {

namespace {

using Corvane::Time::TimePoint;
using records::Field;
using records::Record;
using support::DataChunk;
using support::FileOf;
using support::Word;
using Chunks = std::vector<DataChunk>;

constexpr std::int64_t kTime = 1'800'000'000'000'000'000;
constexpr std::int64_t kTenMilliseconds = 10'000'000;
constexpr std::uint64_t kHeaderSize = 16;
constexpr const char* kAllRead = "all read";
constexpr const char* kBadRecord = "bad record";
constexpr const char* kEndOfFile = "end of file";

DataChunk Chunk(std::int64_t time, std::initializer_list<std::pair<std::string, std::string>> fields)
{
    DataChunk chunk{TimePoint(time)};
    for (const auto& [name, value] : fields) {
        chunk.Set(name, value);
    }
    return chunk;
}

// The records of most files, and where they begin: the first two are the page's example.
DataChunk A()
{
    return Chunk(kTime, {{"load", "0.42"}, {"mem", "71 %"}});
}

DataChunk B()
{
    return Chunk(kTime + kTenMilliseconds, {{"load", "0.5"}});
}

DataChunk C()
{
    return Chunk(kTime + 2 * kTenMilliseconds, {{"load", "0.61"}, {"note", "calibrated"}});
}

constexpr std::uint64_t kSecond = 103;
constexpr std::uint64_t kThird = 166;
constexpr std::uint64_t kEnd = 260;

std::string Sound()
{
    return FileOf({A(), B(), C()});
}

std::string With(std::string file, std::uint64_t at, const std::string& bytes)
{
    return file.replace(at, bytes.size(), bytes);
}

std::string Flipped(std::string file, std::uint64_t at)
{
    file[at] = static_cast<char>(file[at] ^ 1);
    return file;
}

std::string Zeros(std::uint64_t size)
{
    return std::string(size, '\0');
}

using List = std::vector<Vector>;

Vector& Add(List& list, const std::string& name, const std::string& state, const std::string& about,
            const std::string& bytes, const Chunks& seen, const std::string& end,
            const CheckFacts& check = {"sound", {}})
{
    return list.emplace_back(Vector{name, state, about, bytes, seen, end, check});
}

CheckFacts SoundWith(const std::vector<std::string>& findings, std::uint64_t doubtful = 0)
{
    return {"sound", findings, 0, doubtful};
}

CheckFacts Damaged(const std::vector<std::string>& findings, std::uint64_t found = 0, std::uint64_t doubtful = 0)
{
    return {"damaged", findings, found, doubtful};
}

std::string Range(std::uint64_t begin, std::uint64_t end)
{
    return ' ' + std::to_string(begin) + '-' + std::to_string(end);
}

// A bad record, and good ones after it.
std::vector<std::string> BadThenFound(std::uint64_t bad, std::uint64_t found, std::uint64_t end)
{
    return {"bad-record" + Range(bad, found), "found-after" + Range(found, end)};
}

void AddHeaders(List& list)
{
    for (const std::uint64_t size : {0U, 1U, 8U, 9U, 15U}) {
        Add(list, "short_" + std::to_string(size), "Shorter than 16 bytes",
            "the first " + std::to_string(size) + " bytes of a file", Sound().substr(0, size), {},
            size > 8 ? kEndOfFile : kAllRead, Damaged({"short-file" + Range(0, size)}));
    }
    Add(list, "header_only", "Layout", "no record and no fill", FileOf({}), {}, kAllRead);
    Add(list, "header_and_fill", "Layout", "a bounded file without records", FileOf({}) + Zeros(100), {}, kAllRead,
        SoundWith({"fill-zero 16-116"}));
    Add(list, "zeros", "Zeros only", "256 zeros", Zeros(256), {}, kAllRead,
        SoundWith({"unbounded 0-8", "fill-zero 16-256"}));
    Add(list, "version_0", "Version 0: a new unbounded file", "", FileOf({A(), B()}, 0), {A(), B()}, kAllRead,
        SoundWith({"unbounded 0-8"}));
    Add(list, "version_0_refused_duplicate", "Version 0: a new unbounded file",
        "zeros where a chunk was refused because its time point was there", FileOf({A()}, 0) + Zeros(87), {A()},
        kAllRead, SoundWith({"unbounded 0-8", "fill-zero 103-190"}));
    for (const auto& [name, version] : {std::pair("1", std::uint64_t{1}), {"3", 3}, {"largest", UINT64_MAX}}) {
        Add(list, "version_" + std::string(name), "Any version but 0 and 2", "", FileOf({A(), B(), C()}, version),
            {A(), B(), C()}, kAllRead, SoundWith({"other-version 0-8"}));
    }
}

void AddSound(List& list)
{
    Add(list, "example_of_the_page", "A file of two records", "", FileOf({A(), B()}) + Zeros(6), {A(), B()}, kAllRead,
        SoundWith({"fill-zero 166-172"}));
    Add(list, "sound", "Sound", "ends with its last record", Sound(), {A(), B(), C()}, kAllRead);
    Add(list, "sound_bounded", "Sound", "zeros up to the maximum size", Sound() + Zeros(252), {A(), B(), C()}, kAllRead,
        SoundWith({"fill-zero 260-512"}));
    Add(list, "foreign_fill", "Foreign bytes in the fill", "", Sound() + std::string(100, 'x'), {A(), B(), C()},
        kAllRead, SoundWith({"fill-other 260-360"}));
    Add(list, "equal_times", "Two records of one time point", "", FileOf({A(), A(), B()}), {A(), A(), B()}, kAllRead,
        SoundWith({"equal-times 16-253"}));
    Add(list, "descending_times", "Records of the reference platform", "", FileOf({C(), B(), A()}), {C(), B(), A()},
        kAllRead, SoundWith({"times-descend 110-173"}));
    Chunks chunks;
    for (const std::int64_t time :
         {INT64_MIN, INT64_MIN + 1, std::int64_t{-1}, std::int64_t{0}, std::int64_t{1}, INT64_MAX}) {
        chunks.push_back(Chunk(time, {{"load", "1"}}));
    }
    Add(list, "extreme_times", "Records of the reference platform", "earliest, latest, and around 1970", FileOf(chunks),
        chunks, kAllRead);
}

std::string AllBytes(std::uint64_t size)
{
    std::string bytes;
    for (std::uint64_t i = 0; i < size; ++i) {
        bytes.push_back(static_cast<char>((i + i / 256) % 256));
    }
    return bytes;
}

DataChunk ManyFields()
{
    DataChunk chunk{TimePoint(kTime)};
    for (std::uint64_t i = 0; i < 300; ++i) {
        chunk.Set("field " + std::to_string(i), std::to_string(i * i));
    }
    return chunk;
}

void AddFields(List& list)
{
    const auto add = [&list](const std::string& name, const std::string& about, const Chunks& chunks) {
        Add(list, name, "Records of the reference platform", about, FileOf(chunks), chunks, kAllRead);
    };
    add("no_fields", "a record of 40 bytes", {Chunk(kTime, {})});
    add("empty_value", "", {Chunk(kTime, {{"load", ""}})});
    add("empty_name", "", {Chunk(kTime, {{"", "nameless"}, {"load", "1"}}), Chunk(kTime + 1, {{"", ""}})});
    add("order_of_names", "as unsigned bytes; a name comes before its extensions",
        {Chunk(kTime, {{"a", "1"},
                       {std::string("a\0", 2), "2"},
                       {"aa", "3"},
                       {"b", "4"},
                       {"\x7f", "5"},
                       {"\x80", "6"},
                       {"\xc3\xbc", "7"},
                       {"\xee\x80\x80", "8"},
                       {"\xff", "9"}})});
    add("binary", "all bytes, as name and as value", {Chunk(kTime, {{AllBytes(256), AllBytes(256)}})});
    add("text", "UTF-8, JSON, lines, and what a terminal obeys",
        {Chunk(kTime, {{"gr\xc3\xbc\xc3\x9f", "\xe2\x82\xac 12"},
                       {"json", R"({"a":[1,2.50,null]})"},
                       {"lines", "a\nb\r\n"},
                       {"csv", "a,\"b\";c"},
                       {"escape", "\x1b[31mred"}})});
    add("many_fields", "300 fields", {ManyFields(), B()});
    add("large_value", "20,000 bytes", {Chunk(kTime, {{"load", AllBytes(20'000)}}), B()});
    add("long_name", "1,000 bytes", {Chunk(kTime, {{std::string(1000, 'n'), "v"}}), B()});
    add("file_in_a_value", "a whole chunk file", {Chunk(kTime, {{"load", Sound()}}), B()});
}

void AddCounts(List& list)
{
    const auto add = [&list](const std::string& name, const std::string& about, std::uint64_t count,
                             const std::string& fill, const char* end, const std::string& finding) {
        Add(list, name, "Count too high", about, With(Sound(), 8, Word(count)) + fill, {A(), B(), C()}, end,
            Damaged({finding + Range(kEnd, kEnd + fill.size())}));
    };
    add("count_too_high", "no byte after the last record", 4, "", kEndOfFile, "count-too-high");
    add("count_largest", "no byte after the last record", UINT64_MAX, "", kEndOfFile, "count-too-high");
    add("count_too_high_in_zeros", "a walk meets the fill", 4, Zeros(100), kBadRecord, "count-too-high");
    add("count_too_high_in_39_zeros", "the fill is shorter than a head", 4, Zeros(39), kBadRecord, "count-too-high");
    add("count_too_high_in_foreign_bytes", "a walk meets the fill", 4, std::string(100, 'x'), kBadRecord, "bad-record");
    Add(list, "count_too_low", "Count too low", "", With(Sound(), 8, Word(1)), {A()}, kAllRead,
        SoundWith({"older-records 103-260"}, 2));
    Add(list, "count_zero", "Count too low", "", With(Sound(), 8, Word(0)), {}, kAllRead,
        SoundWith({"older-records 16-260"}, 3));
}

void AddTruncated(List& list)
{
    const std::string inside = "Truncated inside a record";
    Add(list, "truncated_after_the_header", "Truncated between records", "", Sound().substr(0, kHeaderSize), {},
        kEndOfFile, Damaged({"count-too-high 16-16"}));
    Add(list, "truncated_between_records", "Truncated between records", "", Sound().substr(0, kThird), {A(), B()},
        kEndOfFile, Damaged({"count-too-high 166-166"}));
    for (const auto& [name, end] :
         {std::pair("mark", kThird + 1), std::pair("head", kThird + 39), std::pair("directory", kThird + 41),
          std::pair("values", kEnd - 14), std::pair("last_value", kEnd - 1)}) {
        Add(list, "truncated_in_" + std::string(name), inside, "", Sound().substr(0, end), {A(), B()}, kBadRecord,
            Damaged({"cut-record" + Range(kThird, end)}));
    }
    const DataChunk padded = Chunk(kTime + 1, {{"load", "1"}, {"padding", Zeros(20)}});
    const std::string file = FileOf({A(), padded});
    Add(list, "truncated_in_zeros", "Truncated inside zeros at a record's end", "a larger maximum size adds zeros",
        file.substr(0, file.size() - 8), {A()}, kBadRecord, Damaged({"cut-record 103-199"}))
        .completed = padded.GetSizeOnFile();
    Add(list, "truncated_bounded", "New file truncated by a full disk", "the length is no record's end",
        Sound().substr(0, 128), {A()}, kBadRecord, Damaged({"cut-record 103-128"}));
}

// One bit of the second record flipped, or of the third.
void AddFlipped(List& list)
{
    const std::string state = "Flipped bit in a record";
    for (const auto& [name, at] :
         {std::pair("mark", 0), std::pair("size", 4), std::pair("time", 8), std::pair("directory_size", 16),
          std::pair("number_of_fields", 20), std::pair("checksum_of_directory", 24), std::pair("checksum_of_head", 32),
          std::pair("name_size", 40), std::pair("value_size", 44), std::pair("checksum_of_value", 48),
          std::pair("name", 56), std::pair("value", 60)}) {
        Add(list, "flipped_in_" + std::string(name), state, "the next record is whole",
            Flipped(Sound(), kSecond + static_cast<std::uint64_t>(at)), {A()}, kBadRecord,
            Damaged(BadThenFound(kSecond, kThird, kEnd), 1));
    }
    Add(list, "flipped_in_value_not_asked_for", "Flipped bit in a field not asked for",
        "a walk for the field load does not notice", Flipped(Sound(), kSecond - 1), {}, kBadRecord,
        Damaged(BadThenFound(kHeaderSize, kSecond, kEnd), 2))
        .walkOfLoad = WalkFacts{3, kAllRead, kEnd};
    Add(list, "zeros_in_place_of_a_record", "Zeros in place of a record", "",
        With(Sound(), kSecond, Zeros(kThird - kSecond)), {A()}, kBadRecord,
        Damaged({"zeros-for-record 103-166", "found-after 166-260"}, 1));
    Add(list, "foreign_records", "Records of another chunk type", "", Word(2) + Word(3) + std::string(200, 'x'), {},
        kBadRecord, {"unknown", {"unknown-records 16-216"}});
    const std::string nested = FileOf({Chunk(kTime, {{"load", Sound()}}), B()});
    Add(list, "flipped_around_a_file_in_a_value", state, "good records lie in the bad one's value",
        Flipped(nested, kHeaderSize + 32), {}, kBadRecord, Damaged(BadThenFound(kHeaderSize, 92, 399), 0, 4));
}

void AddOverwritten(List& list)
{
    const DataChunk a = Chunk(kTime + 70, {{"load", "0.11"}, {"mem", "11 %"}});
    const DataChunk b = Chunk(kTime + 80, {{"load", "0.2"}});
    const DataChunk c = Chunk(kTime + 90, {{"load", "0.31"}, {"note", "calibrated"}});
    const std::string newer = FileOf({a, b, c});
    const std::string tail = Sound().substr(kSecond);
    Add(list, "older_tail", "End of an older, longer file in the fill", "older records begin right after",
        FileOf({a}) + tail, {a}, kAllRead, SoundWith({"older-records 103-260"}, 2));
    Add(list, "older_tail_count_too_high", "The same, and the count too high", "", With(FileOf({a}), 8, Word(3)) + tail,
        {a, B(), C()}, kAllRead);
    Add(list, "older_tail_inside_a_record", "The same, and the count too high", "no record begins right after",
        With(FileOf({b}), 8, Word(3)) + Sound().substr(FileOf({b}).size()), {b}, kBadRecord,
        Damaged(BadThenFound(79, kSecond, kEnd), 0, 2));
    const std::string image = FileOf({A(), B()}) + Zeros(34);
    Add(list, "image_written_twice", "Image written twice", "", image + image, {A(), B()}, kAllRead,
        SoundWith({"second-image 200-400"}, 2));
    Add(list, "torn_inside_a_record", "Torn write, tear inside a record", "",
        newer.substr(0, kSecond + 30) + Sound().substr(kSecond + 30), {a}, kBadRecord,
        Damaged(BadThenFound(kSecond, kThird, kEnd), 1));
    Add(list, "torn_between_records", "Torn write, tear between records of both files", "",
        newer.substr(0, kSecond) + tail, {a, B(), C()}, kAllRead);
    Add(list, "torn_inside_a_low_count", "Torn write, tear inside the count", "258 over 3, after its first byte",
        With(Sound(), 8, "\x02"), {A(), B()}, kAllRead, SoundWith({"older-records 166-260"}, 1));
    Add(list, "torn_inside_a_high_count", "Torn write, tear inside the count", "5 over 3, after its first byte",
        With(Sound(), 8, "\x05"), {A(), B(), C()}, kEndOfFile, Damaged({"count-too-high 260-260"}));
}

Record Changed(std::vector<Field> fields, const std::function<void(Record&)>& change)
{
    Record record(std::move(fields));
    change(record);
    return record;
}

Field WithSizes(std::uint64_t nameSize, std::uint64_t valueSize)
{
    Field field("load", "1");
    field.nameSize = nameSize;
    field.valueSize = valueSize;
    return field;
}

Field WithChecksum(std::uint64_t checksum)
{
    Field field("load", "");
    field.checksum = checksum;
    return field;
}

// A record that no chunk writes, between good ones. All its checksums are right, unless it is about one. The tool counts
// the record after it as found, or else as doubtful.
void AddForged(List& list, const std::string& name, const std::string& about, const Record& record,
               std::uint64_t found = 1)
{
    const std::string bytes = record.Bytes();
    const std::uint64_t next = kSecond + bytes.size();
    Add(list, "forged_" + name, "Records of the reference platform", about,
        With(FileOf({A(), B()}), 8, Word(3)).insert(kSecond, bytes), {A()}, kBadRecord,
        Damaged(BadThenFound(kSecond, next, next + kThird - kSecond), found, 1 - found));
}

Field X()
{
    return {"x", "1"};
}

Field Y()
{
    return {"y", "2"};
}

void AddForgedHeads(List& list)
{
    AddForged(list, "mark", "CVC2", Changed({X()}, [](Record& record) { record.mark += 0x01000000; }));
    AddForged(list, "size_0", "", Changed({X()}, [](Record& record) { record.size = 0; }));
    AddForged(list, "size_39", "less than a head", Changed({}, [](Record& record) { record.size = 39; }));
    AddForged(list, "size_one_less", "less than head, directory and values",
              Changed({X()}, [](Record& record) { --record.size; }));
    AddForged(list, "size_one_more", "more than head, directory and values",
              Changed({X()}, [](Record& record) { ++record.size; }),
              0);  // its head announces a byte of the next record
    AddForged(list, "size_above_1_gib", "", Changed({X()}, [](Record& record) { record.size = (1U << 30U) + 1; }));
    AddForged(list, "directory_one_less", "", Changed({X(), Y()}, [](Record& record) { --record.directorySize; }));
    AddForged(list, "directory_one_more", "the first value's byte",
              Changed({X(), Y()}, [](Record& record) { ++record.directorySize; }));
    AddForged(list, "directory_longer_than_record", "",
              Changed({X()}, [](Record& record) { record.directorySize = record.size; }));
    AddForged(list, "checksum_of_empty_directory", "0 in place of 2d06800538d394c2",
              Changed({}, [](Record& record) { record.directoryChecksum = 0; }));
}

void AddForgedDirectories(List& list)
{
    AddForged(list, "number_of_fields_0", "", Changed({X()}, [](Record& record) { record.fieldNumber = 0; }));
    AddForged(list, "number_of_fields_one_less", "the last value is empty, so all sizes add up",
              Changed({X(), Field("y", "")}, [](Record& record) { --record.fieldNumber; }));
    AddForged(list, "number_of_fields_one_more", "", Changed({X()}, [](Record& record) { ++record.fieldNumber; }));
    AddForged(list, "byte_after_the_last_entry", "all sizes add up",
              Changed({Field("xy", "1")}, [](Record& record) { --record.fields[0].nameSize; }));
    AddForged(list, "names_descend", "", Record({Y(), X()}));
    AddForged(list, "names_descend_as_unsigned_bytes", "", Record({Field("\xff", "1"), X()}));
    AddForged(list, "names_equal", "", Record({X(), X()}));
    AddForged(list, "empty_names_equal", "", Record({Field("", "1"), Field("", "2")}));
    AddForged(list, "name_longer_than_directory", "", Record({WithSizes(5, 1)}));
    AddForged(list, "name_size_largest", "", Record({WithSizes(UINT32_MAX, 1)}));
}

void AddForgedValues(List& list)
{
    AddForged(list, "value_longer_than_record", "", Record({WithSizes(4, 2)}));
    AddForged(list, "value_size_largest", "", Record({WithSizes(4, UINT32_MAX)}));
    AddForged(
        list, "value_sizes_wrap", "they add up only modulo 4 GiB",
        Changed({WithSizes(4, UINT32_MAX), WithSizes(4, 3)}, [](Record& record) { record.fields[1].name = "mem "; }));
    AddForged(list, "checksum_of_empty_value", "0 in place of 2d06800538d394c2", Record({WithChecksum(0)}));
    Add(list, "record_longer_than_the_file", "Record longer than the rest of the file", "its sizes add up",
        FileOf({A(), B()})
            .insert(kSecond,
                    Changed({WithSizes(4, 1U << 20U)}, [](Record& record) { record.size += (1U << 20U) - 1; }).Bytes()),
        {A()}, kBadRecord, Damaged({"cut-record 103-227", "found-after 164-227"}, 0, 1));
}

std::string RefusalOf(const Facts& facts, std::uint64_t maxSize)
{
    if (facts.size < kHeaderSize) {
        return "shorter than 16 bytes";
    }
    if (maxSize != 0 && maxSize < facts.size) {
        return "longer than the maximum size";
    }
    return facts.version == 2 ? "" : "version";
}

ReopeningFacts ReopeningByPage(const Vector& vector, const Facts& facts, std::uint64_t maxSize)
{
    ReopeningFacts reopening = {maxSize, RefusalOf(facts, maxSize)};
    if (reopening.refused.empty()) {
        const bool completed = vector.completed != 0 && maxSize >= facts.walk.position + vector.completed;
        reopening.kept = facts.walk.records + (completed ? 1 : 0);
        reopening.next = facts.walk.position + (completed ? vector.completed : 0);
    }
    return reopening;
}

}  // namespace

List AllVectors()
{
    List list;
    for (const auto add : {AddHeaders, AddSound, AddFields, AddCounts, AddTruncated, AddFlipped, AddOverwritten,
                           AddForgedHeads, AddForgedDirectories, AddForgedValues}) {
        add(list);
    }
    return list;
}

Facts FactsByPage(const Vector& vector)
{
    Facts facts;
    facts.size = vector.bytes.size();
    const std::string header = (vector.bytes + Zeros(kHeaderSize)).substr(0, kHeaderSize);
    facts.version = support::WordAt(header, 0);
    facts.count = support::WordAt(header, 8);
    std::uint64_t position = kHeaderSize;
    for (const DataChunk& chunk : vector.seen) {
        const std::uint64_t size = support::RecordOf(chunk).size();
        facts.records.push_back({position, size, chunk.GetTimePoint().Nanoseconds(), chunk.Fields()});
        position += size;
    }
    facts.walk = {vector.seen.size(), vector.end, position};
    facts.walkOfLoad = vector.walkOfLoad.value_or(facts.walk);
    for (const std::uint64_t maxSize : MaxSizesFor(facts.size)) {
        facts.reopenings.push_back(ReopeningByPage(vector, facts, maxSize));
    }
    return facts;
}

std::string JsonOf(const Vector& vector)
{
    std::string findings;
    for (const std::string& finding : vector.check.findings) {
        findings += (findings.empty() ? "\"" : ", \"") + finding + '"';
    }
    return "{\n  \"state\": \"" + vector.state + "\",\n  \"about\": \"" + vector.about + "\",\n" +
           JsonOf(FactsByPage(vector)) + ",\n  \"check\": {\"verdict\": \"" + vector.check.verdict +
           "\", \"findings\": [" + findings + "], \"found\": " + std::to_string(vector.check.found) +
           ", \"doubtful\": " + std::to_string(vector.check.doubtful) + "}\n}\n";
}

}  // namespace vectors
