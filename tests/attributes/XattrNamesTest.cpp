#include <gtest/gtest.h>

#include <type_traits>

#include "Corvane/File/XattrNames.h"

// The address that XattrFileSize has in another source.
const std::string* FileSizeNameElsewhere();

namespace {

namespace File = Corvane::File;

template <typename... Names>
constexpr bool AreConstantStrings = (std::is_same_v<Names, const std::string> && ...);

static_assert(AreConstantStrings<decltype(File::XattrFineTimecode), decltype(File::XattrFineDuration),
                                 decltype(File::XattrFineTrackId), decltype(File::XattrFineDataSize),
                                 decltype(File::XattrFineChunkNumber), decltype(File::XattrFineEnableBlocks),
                                 decltype(File::XattrFinePrefix), decltype(File::XattrEmptyFile),
                                 decltype(File::XattrTrackSize), decltype(File::XattrFileSize)>);

TEST(XattrNames, HaveTheirValues)
{
    EXPECT_EQ(File::XattrFineTimecode, "user.__fine__timecode");
    EXPECT_EQ(File::XattrFineDuration, "user.__fine__duration");
    EXPECT_EQ(File::XattrFineTrackId, "user.__fine__trackId");
    EXPECT_EQ(File::XattrFineDataSize, "user.__fine__dataSize");
    EXPECT_EQ(File::XattrFineChunkNumber, "user.__fine__chunkNumber");
    EXPECT_EQ(File::XattrFineEnableBlocks, "user.__fine__enableBlocks");
    EXPECT_EQ(File::XattrFinePrefix, "user.fine__");
    EXPECT_EQ(File::XattrEmptyFile, "user.__emptyFile");
    EXPECT_EQ(File::XattrTrackSize, "user.__trackSize");
    EXPECT_EQ(File::XattrFileSize, "user.__fileSize");
}

TEST(XattrNames, AreEachSourcesOwn)
{
    EXPECT_EQ(*FileSizeNameElsewhere(), File::XattrFileSize);
    EXPECT_NE(FileSizeNameElsewhere(), &File::XattrFileSize);
}

}  // namespace
