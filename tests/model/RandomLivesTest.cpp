#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <random>
#include <set>
#include <string>

#include "model/Life.h"
#include "support/Files.h"

namespace {

constexpr std::uint64_t kLives = support::kSanitized ? 1000 : 3000;

std::string ChoicesOf(std::uint64_t seed)
{
    std::mt19937_64 random(seed);
    std::string choices(20 + random() % 300, '\0');
    for (char& choice : choices) {
        choice = static_cast<char>(random() % 256);
    }
    return choices;
}

// Another number of lives; or one life alone, by its number, with its steps.
std::optional<std::uint64_t> Asked(const char* variable)
{
    const char* const text = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): there is one thread
    return text == nullptr ? std::nullopt : std::optional(std::stoull(text));
}

constexpr std::array kTexts = {
    "DataChunkFileAppender could not open file a folder: Is a directory",
    "DataChunkFileAppender: content size # is greater than specified size # when reading file a",
    "DataChunkFileAppender: file a has content of only # bytes. #is the minimum expected",
    "DataChunkFileAppender: file a is stored with version # instead of version #: we don't know how to read this file",
    "# In file a: we discovered # chunks from version #",
    "# Chunk # in file a of # chunks is not good. We skip the remaining # chunks",
    "# Current file size # + chunkSize # > maxSize #",
    "# TimePoint #-#-#T#:#:#.#Z has already been appended",
    "# Could not write #B. Wrote instead: #",
    "# Could not write #B. Wrote instead: -#",
    "a chunk with skipped fields has no record to write",
    "DataChunkFileReader could not open file a",
    "# DataChunkFileReader could not open file a",
    "# a opened, contains # chunks on version #",
};

TEST(RandomLives, LibraryAndModelAgreeAndMeetEveryDocumentedText)
{
    const support::TemporaryFolder folder;
    const auto alone = Asked("CORVANE_LIFE");
    const std::uint64_t first = alone.value_or(0);
    const std::uint64_t lives = alone ? 1 : Asked("CORVANE_LIVES").value_or(kLives);
    std::set<std::string> texts;
    for (std::uint64_t life = first; life < first + lives; ++life) {
        const model::Outcome outcome = model::Live(folder.Path(), ChoicesOf(life));
        ASSERT_EQ(outcome.difference, "") << "CORVANE_LIFE=" << life << " lives it again. Its steps:\n"
                                          << outcome.steps;
        texts.insert(outcome.texts.begin(), outcome.texts.end());
        if (alone) {
            std::printf("%s", outcome.steps.c_str());
            return;
        }
    }
    if (lives < kLives) {
        GTEST_SKIP() << "too few lives to meet every text";
    }
    for (const std::string text : kTexts) {
        EXPECT_TRUE(texts.contains(text)) << text;
    }
}

}  // namespace
