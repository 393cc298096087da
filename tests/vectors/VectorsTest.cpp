// The files in vectors/ are what the generator makes, and the library finds in them what they say.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/Files.h"
#include "support/Texts.h"
#include "vectors/Vectors.h"

namespace {

using support::ReadFile;
using vectors::Vector;

std::string CheckedIn(const Vector& vector, const std::string& suffix)
{
    return ReadFile(VECTORS "/" + vector.name + suffix);
}

TEST(Vectors, CheckedInFilesAreThoseOfTheGenerator)
{
    for (const Vector& vector : vectors::AllVectors()) {
        EXPECT_TRUE(CheckedIn(vector, ".chunks") == vector.bytes) << vector.name << ": build the target renew_vectors";
        EXPECT_EQ(CheckedIn(vector, ".json"), vectors::JsonOf(vector));
    }
}

TEST(Vectors, LibraryFindsWhatThePageSays)
{
    const support::TemporaryFolder folder;
    for (const Vector& vector : vectors::AllVectors()) {
        support::WriteFile(folder / "a", vector.bytes);
        EXPECT_EQ(vectors::JsonOf(vectors::FactsByLibrary(folder / "a")), vectors::JsonOf(vectors::FactsByPage(vector)))
            << vector.name;
    }
}

TEST(Vectors, FolderHasNoOtherFile)
{
    support::Names names = {"README.md"};
    for (const Vector& vector : vectors::AllVectors()) {
        EXPECT_TRUE(names.insert(vector.name + ".chunks").second) << vector.name;
        names.insert(vector.name + ".json");
    }
    for (const auto& entry : std::filesystem::directory_iterator(VECTORS)) {
        EXPECT_EQ(names.erase(entry.path().filename().string()), 1U) << entry.path() << " is none";
    }
    EXPECT_EQ(names, support::Names{});
}

}  // namespace
