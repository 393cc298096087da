// Loads the library's file at run time, as a plugin would: this program does not link it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>

namespace {

constexpr const char* kLibrary = CORVANE_LIBRARY;  // the path of the file

bool IsMapped()
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find("libCorvaneFile") != std::string::npos) {
            return true;
        }
    }
    return false;
}

// Uses the library up to a failure's text and log entries, because a first use can pin the library in memory.
void RemoveAnAttribute(void* library)
{
    using Remove = void(const std::string& path, const std::string& name, bool& success);
    auto* const remove = reinterpret_cast<Remove*>(::dlsym(
        library,
        "_ZN7Corvane4File18ExtendedAttributes6RemoveERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEES9_Rb"));
    if (remove == nullptr) {
        FAIL() << "the library lacks ExtendedAttributes::Remove";
    }
    bool success = true;
    remove("/", "user.", success);
    EXPECT_FALSE(success);
}

TEST(Unload, ClosedLibraryLeavesMemory)
{
    ASSERT_FALSE(IsMapped());
    for (int round = 0; round < 2; ++round) {
        void* const library = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library, nullptr);
        EXPECT_TRUE(IsMapped());
        RemoveAnAttribute(library);
        EXPECT_EQ(::dlclose(library), 0);
        EXPECT_EQ(::dlopen(kLibrary, RTLD_NOW | RTLD_NOLOAD), nullptr);
        EXPECT_FALSE(IsMapped());
    }
}

}  // namespace
