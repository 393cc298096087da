// chunkfile view: one page that shows a file.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>

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

// A link stays, and what it leads to is replaced. A link to nothing is replaced itself.
std::string TargetOf(const std::string& page)
{
    std::error_code error;
    const bool isLink = std::filesystem::is_symlink(page, error);
    const std::string target = isLink ? std::filesystem::canonical(page, error) : std::filesystem::path();
    return target.empty() ? page : target;
}

// A file beside the page. It goes away unless it becomes the page.
class FreshFile {
public:
    explicit FreshFile(std::string page)
        : page_(std::move(page)), name_(page_ + ".XXXXXX"), fd_(::mkostemp(name_.data(), O_CLOEXEC))
    {
        if (fd_ == -1) {
            Fail(page_, "create a file beside it");
        }
    }
    FreshFile(const FreshFile&) = delete;
    FreshFile& operator=(const FreshFile&) = delete;
    ~FreshFile()
    {
        ::close(fd_);
        if (!name_.empty()) {
            ::unlinkat(AT_FDCWD, name_.c_str(), 0);
        }
    }

    void Write(std::string_view text) const
    {
        while (!text.empty()) {
            const ssize_t written = ::write(fd_, text.data(), text.size());
            if (written == -1 && errno != EINTR) {
                Fail(page_, "write");
            }
            text.remove_prefix(written == -1 ? 0 : static_cast<std::size_t>(written));
        }
        if (::fchmod(fd_, Mode()) == -1 || ::fsync(fd_) == -1) {
            Fail(page_, "sync");
        }
    }

    void Rename()
    {
        if (::renameat(AT_FDCWD, name_.c_str(), AT_FDCWD, page_.c_str()) == -1) {
            Fail(page_, "rename");
        }
        name_.clear();
    }

private:
    // What the replaced page has, or a new file.
    mode_t Mode() const
    {
        struct stat old = {};
        const mode_t mask = ::umask(0);
        ::umask(mask);
        return ::stat(page_.c_str(), &old) == 0 ? old.st_mode & 0777 : 0666 & ~mask;
    }

    std::string page_;
    std::string name_;
    int fd_;
};

void WritePage(const std::string& page, const Options& options)
{
    const Interrupts interrupts;  // the fresh file does not stay
    {
        FreshFile file(TargetOf(options.output));
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
    std::string file;
    Verdict verdict;
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
        return {ViewPage(checked, facts), input.Name(), checked.verdict, CodeOf(checked, false)};
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(ErrorText(path == "-" ? "standard input" : path, error.what()));
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
    if (seen.code != Exit::Fine) {
        terminal.Error(ErrorText(seen.file, std::string(NameOf(seen.verdict))));
    }
    return seen.code;
}

}  // namespace Corvane::FileTool
