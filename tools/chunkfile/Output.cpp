#include "chunkfile/Output.h"

#include <stdexcept>
#include <string_view>

#include "chunkfile/Interrupts.h"
#include "chunkfile/OutputName.h"
#include "chunkfile/PartWriter.h"

namespace Corvane::FileTool {

namespace {

// The library's text without its function's name: file, step and reason. Empty if the text is not of that function.
std::string StepText(std::string_view text)
{
    constexpr std::string_view begin = "WriteChunkFileDurably: file ";
    return text.starts_with(begin) ? std::string(text.substr(begin.size())) : std::string();
}

// What a user should know besides the parts.
void Report(const Written& written, const Options& options, Terminal& terminal)
{
    if (written.skipped != 0) {
        Say(terminal, options, options.output,
            Records(written.skipped) + " left out: an earlier one has the same time");
    }
    if (written.shifted != 0) {
        Say(terminal, options, options.output,
            Records(written.shifted) + " shifted to a later time: an earlier one has the same");
    }
    const std::string next = PartName(options.output, written.parts + 1);
    if (Splits(options) && Exists(next)) {
        terminal.Error(ErrorText(next, "is of an earlier run, and so are the parts after it"));
    }
}

[[noreturn]] void EndInterrupted(const Written& written, const Options& options, Terminal& terminal)
{
    terminal.Error(
        ErrorText(options.output, "interrupted; " + Number(written.parts, "file was", "files were") + " written"));
    Interrupts::End();
}

}  // namespace

std::string PlaceText(const std::string& file, std::uint64_t position, std::uint64_t record)
{
    return file + ": byte " + std::to_string(position) + " (record " + std::to_string(record) + ")";
}

void RefuseChanged(const Input& source)
{
    if (source.HasChanged()) {
        throw std::runtime_error(ErrorText(source.Name(), "changed while it was read"));
    }
}

void Say(Terminal& terminal, const Options& options, const std::string& file, const std::string& text)
{
    if (!options.quiet) {
        terminal.Write(Terminal::Escaped(ErrorText(file, text)) + "\n");
    }
}

bool Interrupted()
{
    return Interrupts::Count() != 0;
}

void CheckOutput(const Options& options)
{
    const bool shifts = options.onEqualTime == OnEqualTime::Shift;
    if (options.output == "-") {
        throw std::invalid_argument("-o takes the name of a file: standard output cannot be proved");
    }
    if (shifts && (Glue::MakeChunk(0, {}) == nullptr || !Glue::TimePointOf(0))) {
        throw std::invalid_argument("--on-equal-time shift needs a platform that makes chunks of nanoseconds");
    }
    if (options.splitNanoseconds != 0 && !Glue::TimePointOf(0)) {
        throw std::invalid_argument("--split by time needs a platform that tells its times in nanoseconds");
    }
    const std::uint64_t size = options.maxSize.value_or(0);
    if (size != 0 && (size < File::kHeaderSize || size > kMostBytes)) {
        throw std::invalid_argument("--max-size: " + Bytes(size) + "; a file has from " +
                                    std::to_string(File::kHeaderSize) + " to " + std::to_string(kMostBytes));
    }
    Splits(options) ? RefuseParts(options) : RefuseName(options.output, options);
}

Written WriteChunks(ChunkSource& source, const Options& options, Terminal& terminal)
{
    CheckOutput(options);
    const Interrupts interrupts;
    PartWriter writer(source, options, terminal);
    try {
        const Written& written = writer.Run();
        Report(written, options, terminal);
        if (Interrupted() && source.EndsAtInterrupt()) {
            terminal.Error(ErrorText(options.output, "interrupted: the input ends here"));
        }
        terminal.Flush();  // Ctrl-C must not come between the last file and its line
        return written;
    } catch (const InterruptedError&) {
        EndInterrupted(writer.Done(), options, terminal);
    } catch (const OutputError&) {
        if (Interrupted()) {  // the reader of standard output has gone away
            Interrupts::End();
        }
        throw;
    } catch (const std::runtime_error& error) {
        if (const std::string text = StepText(error.what()); !text.empty()) {
            throw std::runtime_error(text);
        }
        throw;
    } catch (...) {
        if (Interrupted()) {
            EndInterrupted(writer.Done(), options, terminal);
        }
        throw;
    }
}

}  // namespace Corvane::FileTool
