// chunkfile view: one page that shows a file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "chunkfile/Interrupts.h"
#include "chunkfile/OutputName.h"
#include "chunkfile/ViewPage.h"

namespace Corvane::FileTool {

namespace {

[[noreturn]] void Fail(const std::string& name, const char* step)
{
    const std::string reason = std::strerror(errno);  // NOLINT(concurrency-mt-unsafe): this program has one thread
    throw std::runtime_error(ErrorText(name, std::string(step) + ": " + reason));
}

// A file beside the page. It goes away unless it becomes the page.
class FreshFile {
public:
    explicit FreshFile(std::string page) : page_(std::move(page)), name_(page_ + ".XXXXXX")
    {
        const int fd = ::mkostemp(name_.data(), O_CLOEXEC);
        if (fd == -1 || (file_ = ::fdopen(fd, "w")) == nullptr) {
            Fail(page_, "create a file beside it");
        }
    }
    FreshFile(const FreshFile&) = delete;
    FreshFile& operator=(const FreshFile&) = delete;
    ~FreshFile()
    {
        std::fclose(file_);
        if (!name_.empty()) {
            ::unlink(name_.c_str());
        }
    }

    void Write(const std::string& text)
    {
        const mode_t mask = ::umask(0);
        ::umask(mask);
        if (std::fwrite(text.data(), 1, text.size(), file_) != text.size() || std::fflush(file_) != 0) {
            Fail(page_, "write");
        }
        if (::fchmod(::fileno(file_), 0666 & ~mask) == -1 || ::fsync(::fileno(file_)) == -1) {
            Fail(page_, "sync");
        }
    }

    void Rename()
    {
        if (::rename(name_.c_str(), page_.c_str()) == -1) {
            Fail(page_, "rename");
        }
        name_.clear();
    }

private:
    std::string page_;
    std::string name_;
    std::FILE* file_ = nullptr;
};

void WritePage(const std::string& page, const Options& options)
{
    const Interrupts interrupts;  // the fresh file does not stay
    {
        FreshFile file(options.output);
        file.Write(page);
        if (Interrupts::Count() == 0) {
            RefuseName(options.output, options);  // meanwhile, somebody may have made such a file
            file.Rename();
            return;
        }
    }
    Interrupts::End();
}

struct Seen {
    std::string page;
    Exit code;
};

Seen LookAt(const std::string& path, Terminal& terminal)
{
    try {
        const Input input(path);
        ViewFacts facts(input);
        SurveyOptions wanted;
        wanted.progress = [&](std::uint64_t position) { terminal.Progress(input.Name(), position, input.Size()); };
        wanted.visit = [&facts](const FoundRecord& record) {
            facts.Add(record);
            return true;
        };
        const Checked checked = CheckedOf(input, 0, wanted);
        facts.Finish(checked.survey);
        return {ViewPage(checked, facts), CodeOf(checked, false)};
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(ErrorText(path, error.what()));
    }
}

}  // namespace

Exit View(const Options& options, Terminal& terminal)
{
    if (options.output == "-") {
        throw std::invalid_argument("-o takes the name of a file");
    }
    RefuseName(options.output, options);
    const Seen seen = LookAt(options.paths.front(), terminal);
    WritePage(seen.page, options);
    return seen.code;
}

}  // namespace Corvane::FileTool
