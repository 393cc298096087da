#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

#include "Corvane/File/Descriptor.h"
#include "chunkfile/Commands.h"
#include "chunkfile/Terminal.h"
#include "support/DamagedFiles.h"
#include "support/SystemCalls.h"

namespace support {

// A test of commands that write files, called as functions. Nothing is printed.
class WritingTest : public DamagedFileTest {
protected:
    using Options = Corvane::FileTool::Options;
    using Exit = Corvane::FileTool::Exit;
    using Command = Exit (*)(const Options& options, Corvane::FileTool::Terminal& terminal);

    WritingTest()
    {
        options_.paths = {path_};
        options_.output = out_;
        options_.quiet = true;
        options_.force = true;
    }

    // The exit code; an exception counts as the program's.
    Exit Run(Command command) const
    {
        const Silence silence(nowhere_);
        Corvane::FileTool::Terminal terminal(options_);
        try {
            return command(options_, terminal);
        } catch (const std::exception&) {
            return Exit::CouldNot;
        }
    }

    std::string Out() const { return std::filesystem::exists(out_) ? ReadFile(out_) : ""; }

    const std::string out_ = folder_ / "out";
    Options options_;

private:
    // While it lives, stderr leads nowhere.
    class Silence {
    public:
        explicit Silence(const Corvane::File::Descriptor& nowhere) : kept_(::dup(STDERR_FILENO))
        {
            if (kept_ < 0 || ::dup2(nowhere.Get(), STDERR_FILENO) < 0) {
                throw std::runtime_error("stderr cannot be led to /dev/null");
            }
        }
        Silence(const Silence&) = delete;
        Silence& operator=(const Silence&) = delete;
        ~Silence()
        {
            ::dup2(kept_, STDERR_FILENO);
            ::close(kept_);
        }

    private:
        int kept_;
    };

    const Corvane::File::Descriptor nowhere_{::open("/dev/null", O_WRONLY | O_CLOEXEC)};
};

// Lets fsync succeed at once: what is tested does not depend on it.
inline void WithoutSync(SystemCalls& calls)
{
    calls.OnEach("fsync", [](const SystemCall&) { return 0; });
}

}  // namespace support
