#include "AttributePeers.h"

#include <attr/attributes.h>
#include <gio/gio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

#include "Corvane/File/ExtendedAttributes.h"
#include "Store.h"

namespace bench {

using Corvane::File::ExtendedAttributes;

namespace {

constexpr std::uint64_t kCalls = 20'000;
const std::string kName = "user.__trackSize";  // NOLINT(cert-err58-cpp): without memory there is nothing to measure
// libattr adds "user." to a name.
const std::string kShortName = "__trackSize";   // NOLINT(cert-err58-cpp): without memory there is nothing to measure
const std::string kValue = "0123456789abcdef";  // NOLINT(cert-err58-cpp): without memory there is nothing to measure

// A Python process that makes the calls on request, so that its start is not measured.
class Python {
public:
    Python(const std::string& path, const std::string& call) : answers_(path + ".answers")
    {
        ::unlink(answers_.c_str());
        Demand(::mkfifo(answers_.c_str(), 0600) == 0, "Python");
        const std::string script = "import os, sys\nanswers = open('" + answers_ + "', 'w')\npath = '" + path +
                                   "'\nfor line in sys.stdin:\n    for i in range(" + std::to_string(kCalls) +
                                   "):\n        os." + call + "\n    print('done', file=answers, flush=True)\n";
        const std::string file = path + ".py";
        std::ofstream(file) << script;
        // NOLINTNEXTLINE(cert-env33-c): the command holds no words but our own
        process_ = ::popen(("python3 '" + file + "'").c_str(), "w");
        Demand(process_ != nullptr, "Python");
        input_.open(answers_);
    }
    Python(const Python&) = delete;
    Python& operator=(const Python&) = delete;
    ~Python()
    {
        ::pclose(process_);
        ::unlink(answers_.c_str());
    }

    std::uint64_t Run()
    {
        std::fputs("go\n", process_);
        std::fflush(process_);
        std::string answer;
        return std::getline(input_, answer) ? kCalls : 0;
    }

private:
    std::string answers_;
    std::FILE* process_ = nullptr;
    std::ifstream input_;
};

using Call = bool (*)(const std::string& path);

Contender Looped(const std::string& name, const std::string& path, Call call)
{
    return {name, [=] {
                std::uint64_t good = 0;
                for (std::uint64_t i = 0; i < kCalls; ++i) {
                    good += call(path) ? 1U : 0U;
                }
                return good;
            }};
}

bool ReadByOurs(const std::string& path)
{
    return ExtendedAttributes::Read(path, kName).size() == kValue.size();
}

bool WriteByOurs(const std::string& path)
{
    bool success = false;
    ExtendedAttributes::Write(path, kName, kValue, success);
    return success;
}

bool ReadByGio(const std::string& path)
{
    GFile* const file = g_file_new_for_path(path.c_str());
    GFileInfo* const info = g_file_query_info(file, "xattr::__trackSize", G_FILE_QUERY_INFO_NONE, nullptr, nullptr);
    const char* const value = info == nullptr ? nullptr : g_file_info_get_attribute_string(info, "xattr::__trackSize");
    const bool good = value != nullptr && std::string(value).size() == kValue.size();
    if (info != nullptr) {
        g_object_unref(info);
    }
    g_object_unref(file);
    return good;
}

bool WriteByGio(const std::string& path)
{
    GFile* const file = g_file_new_for_path(path.c_str());
    const gboolean good = g_file_set_attribute_string(file, "xattr::__trackSize", kValue.c_str(),
                                                      G_FILE_QUERY_INFO_NONE, nullptr, nullptr);
    g_object_unref(file);
    return good != FALSE;
}

// libattr's attr_get and attr_set are called obsolete by their header, which recommends the system's own calls.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
bool ReadByLibattr(const std::string& path)
{
    std::array<char, 256> value = {};
    int size = static_cast<int>(value.size());
    return ::attr_get(path.c_str(), kShortName.c_str(), value.data(), &size, 0) == 0 &&
           std::string(value.data(), static_cast<std::size_t>(size)).size() == kValue.size();
}

bool WriteByLibattr(const std::string& path)
{
    return ::attr_set(path.c_str(), kShortName.c_str(), kValue.data(), static_cast<int>(kValue.size()), 0) == 0;
}
#pragma GCC diagnostic pop

// `call` is the same work in Python.
Workload OnAllPeers(const Options& options, const std::string& what, Call ours, Call libattr, Call gio,
                    const std::string& call)
{
    const std::string path = options.folder + "/tagged";
    const auto makeContenders = [=]() -> std::vector<Contender> {
        std::ofstream(path).flush();
        ExtendedAttributes::Write(path, kName, kValue);
        const auto python = std::make_shared<Python>(path, call);
        return {Looped("ours", path, ours),
                Looped("libattr", path, libattr),
                Looped("GIO", path, gio),
                {"Python os", [=] { return python->Run(); }}};
    };
    return {"peers", what, 0, kCalls, {}, makeContenders, {}, 0, 0, false};
}

}  // namespace

std::vector<Workload> AttributePeerWorkloads(const Options& options)
{
    return {OnAllPeers(options, "read an attribute", ReadByOurs, ReadByLibattr, ReadByGio,
                       "getxattr(path, '" + kName + "')"),
            OnAllPeers(options, "write an attribute", WriteByOurs, WriteByLibattr, WriteByGio,
                       "setxattr(path, '" + kName + "', b'" + kValue + "')")};
}

}  // namespace bench
