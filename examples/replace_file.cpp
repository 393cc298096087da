// Replaces a chunk file. Its name always stands for a whole file, the old or the new one, even after a power cut.
#include <Corvane/File/DataChunkFileAppender.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <system_error>

static void Require(bool done, const std::string& step, const std::string& reason = "see the log")
{
    if (!done) {
        throw std::runtime_error("cannot " + step + ": " + reason);
    }
}

// Waits until the disk has the bytes of a file, or the names in a folder.
static void Sync(const std::string& name)
{
    const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    const int error = fd == -1 || ::fsync(fd) == -1 ? errno : 0;
    if (fd != -1) {
        ::close(fd);
    }
    Require(error == 0, "sync " + name, std::generic_category().message(error));
}

static void Replace(const std::string& name, char** texts)
{
    constexpr std::uint64_t kSize = 65536;
    const std::string fresh = name + ".new";
    std::filesystem::remove(fresh);  // or bytes of an earlier attempt could pass for new ones
    {
        Corvane::File::DataChunkFileAppender file(fresh, /* reopen = */ false, kSize);
        for (; *texts != nullptr; ++texts) {
            Corvane::Pellin::DataChunk chunk(Corvane::Time::TimePoint::Now());
            chunk.Set("text", *texts);
            Require(file.Append(chunk), "append to " + fresh);
        }
    }  // here the file is written; after a failure it is too short
    Require(std::filesystem::file_size(fresh) == kSize, "write " + fresh);
    Sync(fresh);
    std::filesystem::rename(fresh, name);
    Sync(std::filesystem::absolute(name).parent_path());
}

int main(int count, char** arguments)
{
    try {
        Require(count > 1, "replace a file", "usage: replace_file FILE [TEXT...]");
        Replace(arguments[1], arguments + 2);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "replace_file: " << error.what() << '\n';
        return 1;
    }
}
