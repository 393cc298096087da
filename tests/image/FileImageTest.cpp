#include "Corvane/File/FileImage.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <type_traits>

namespace {

using Corvane::File::FileImage;

constexpr std::uint64_t kLongest = PTRDIFF_MAX;  // bytes that an array can have
constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20U;

bool IsZero(const FileImage& image, std::uint64_t from)
{
    return std::all_of(image.Data() + from, image.Data() + image.Size(), [](unsigned char byte) { return byte == 0; });
}

TEST(FileImage, LongerThanAnyArrayIsALengthErrorAndChangesNothing)
{
    FileImage image;
    image.Cover(0, 10);
    EXPECT_THROW(image.Cover(kLongest + 1, 0), std::length_error);
    EXPECT_THROW(image.Cover(UINT64_MAX, UINT64_MAX), std::length_error);
    EXPECT_THROW(image.Cover(kLongest, 1), std::length_error);
    EXPECT_THROW(image.Cover(10, kLongest - 9), std::length_error);
    try {
        image.Cover(UINT64_MAX, 0);
        FAIL() << "an array can't be that long";
    } catch (const std::length_error& error) {
        EXPECT_STREQ(error.what(), "Corvane::File::FileImage");
    }
    EXPECT_EQ(image.Size(), 10U);
}

TEST(FileImage, LongerThanMemoryIsABadAllocationAndChangesNothing)
{
    FileImage image;
    image.Cover(0, 10);
    EXPECT_THROW(image.Cover(10, kLongest / 2), std::bad_alloc);
    EXPECT_THROW(image.Cover(0, kLongest), std::bad_alloc);
    EXPECT_THROW(image.Cover(kLongest, 0), std::bad_alloc);
    EXPECT_EQ(image.Size(), 10U);
}

TEST(FileImage, IsNeitherCopiedNorAssigned)
{
    EXPECT_FALSE(std::is_copy_constructible_v<FileImage>);
    EXPECT_FALSE(std::is_copy_assignable_v<FileImage>);
}

TEST(FileImage, IsEmptyUntilItCoversAByte)
{
    FileImage image;
    EXPECT_TRUE(image.Empty());
    image.Cover(0, 1);
    EXPECT_FALSE(image.Empty());
    EXPECT_EQ(image.Data()[0], 0);
}

TEST(FileImage, SmallOneTakesWhatItCovers)
{
    FileImage image;
    image.Cover(0, 10'000);
    EXPECT_LT(::malloc_usable_size(image.Data()), 10'100U);
}

TEST(FileImage, ShrinkingDropsBytesAndNeverAddsAny)
{
    FileImage image;
    image.Cover(0, 10);
    image.Shrink(4);
    EXPECT_EQ(image.Size(), 4U);
    image.Shrink(5);
    EXPECT_EQ(image.Size(), 4U);
}

TEST(FileImage, CoveringWhatIsThereChangesNothing)
{
    FileImage image;
    image.Cover(0, 10);
    image.Cover(2, 3);
    EXPECT_EQ(image.Size(), 10U);
}

TEST(FileImage, SmallOneDoublesAndMovesOnlyWhenItIsFull)
{
    FileImage image;
    image.Cover(0, 100);
    image.Cover(100, 1);
    const unsigned char* const bytes = image.Data();
    image.Cover(101, 99);
    EXPECT_EQ(image.Data(), bytes);
    image.Cover(200, 1);
    EXPECT_NE(image.Data(), bytes);
}

TEST(FileImage, HoldsWhatLiesWithinItAndNothingElse)
{
    FileImage image;
    image.Cover(4, 6);
    EXPECT_TRUE(image.Holds(0, 10));
    EXPECT_TRUE(image.Holds(10, 0));
    EXPECT_FALSE(image.Holds(10, 1));
    EXPECT_FALSE(image.Holds(11, 0));
    EXPECT_FALSE(image.Holds(4, UINT64_MAX));
}

TEST(FileImage, GrowsByZerosAndKeepsItsBytesFromHeapToMappingAndOn)
{
    FileImage image;
    for (const std::uint64_t size : {std::uint64_t{1}, std::uint64_t{5000}, 2 * kMebibyte, 5 * kMebibyte + 1}) {
        const std::uint64_t before = image.Size();
        image.Cover(before, size - before);
        EXPECT_EQ(image.Size(), size);
        EXPECT_TRUE(IsZero(image, before));
        std::fill(image.Data() + before, image.Data() + size, static_cast<unsigned char>(1));
        EXPECT_EQ(std::count(image.Data(), image.Data() + size, 1), static_cast<std::ptrdiff_t>(size));
    }
}

TEST(FileImage, TailIsReadableZerosAndLeavesTheImageUnchanged)
{
    for (const std::uint64_t size : {std::uint64_t{100}, 4 * kMebibyte}) {
        FileImage image(true);
        image.Cover(0, size);
        image.Data()[size - 1] = 7;
        ASSERT_TRUE(image.OpenTail());
        EXPECT_EQ(image.Data()[size - 1], 7);
        EXPECT_EQ(image.Data()[size + (std::uint64_t{1} << 32U) - 1], 0);
        EXPECT_EQ(image.Size(), size);
        image.DropTail();
        image.Cover(size, size);
        EXPECT_EQ(image.Data()[size - 1], 7);
        EXPECT_TRUE(IsZero(image, size));
    }
}

}  // namespace
