// Which mappings an image makes, to the byte, because the memory beside them is not its own.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <memory>
#include <new>

#include "Corvane/File/FileImage.h"
#include "support/SystemCalls.h"

namespace {

using Corvane::File::FileImage;
using support::Lines;
using support::SystemCall;
using support::SystemCalls;

constexpr std::uint64_t kPage = 4096;
constexpr std::uint64_t kHugePage = std::uint64_t{1} << 21U;
constexpr std::uint64_t kTail = std::uint64_t{1} << 32U;
constexpr unsigned kReadWrite = PROT_READ | PROT_WRITE;

void ExpectCall(const SystemCall& call, const std::string& name, const void* address, std::uint64_t size)
{
    EXPECT_EQ(call.name, name);
    EXPECT_EQ(call.buffer, address);
    EXPECT_EQ(call.size, size);
}

// The image reserved `size` bytes without access, and gave back what lies before and after them. If it has copied its
// bytes, it gave back its former mapping of `formerSize` bytes too, as the last.
void ExpectMapping(const SystemCalls& calls, const FileImage& image, std::uint64_t size, std::uint64_t formerSize = 0)
{
    const SystemCall mapping = calls.Calls("mmap").back();
    EXPECT_EQ(mapping.size, size + kHugePage);
    EXPECT_EQ(mapping.mode, static_cast<unsigned>(PROT_NONE));
    EXPECT_EQ(mapping.flags, MAP_PRIVATE | MAP_ANONYMOUS);

    const auto address = reinterpret_cast<std::uintptr_t>(image.Data());
    EXPECT_EQ(address % kHugePage, 0U);
    auto unmapped = calls.Calls("munmap");
    if (formerSize != 0) {
        EXPECT_EQ(unmapped.back().size, formerSize);
        unmapped.pop_back();
    }
    std::uint64_t given = 0;
    for (const SystemCall& call : unmapped) {
        const auto at = reinterpret_cast<std::uintptr_t>(call.buffer);
        EXPECT_TRUE(at == static_cast<std::uintptr_t>(mapping.result) ? at + call.size == address
                                                                      : at == address + size);
        EXPECT_NE(call.size, 0U);
        given += call.size;
    }
    EXPECT_EQ(given, kHugePage);
}

class FileImageCalls : public testing::Test {
protected:
    // Makes the image's next mapping start `misalignment` bytes after a huge page.
    void MapNextAt(std::uint64_t misalignment)
    {
        calls_.On("mmap", 0, [misalignment](const SystemCall& call) -> std::optional<std::int64_t> {
            const std::uint64_t size = call.size + 2 * kHugePage;
            void* const room = ::mmap(nullptr, size, static_cast<int>(call.mode), call.flags, call.fd, 0);
            auto* const begin = static_cast<unsigned char*>(room);
            auto* const at = begin + -reinterpret_cast<std::uintptr_t>(begin) % kHugePage + misalignment;
            ::munmap(begin, static_cast<std::uint64_t>(at - begin));
            ::munmap(at + call.size, static_cast<std::uint64_t>(begin + size - at) - call.size);
            return reinterpret_cast<std::intptr_t>(at);
        });
    }

    // The first `size` bytes of the image became writable.
    void ExpectWritable(std::uint64_t size) const
    {
        ExpectCall(calls_.Calls("mprotect").at(0), "mprotect", image_->Data(), size);
        EXPECT_EQ(calls_.Calls("mprotect")[0].mode, kReadWrite);
    }

    void ExpectDestructorToUnmap(std::uint64_t size)
    {
        const unsigned char* const bytes = image_->Data();
        calls_.Clear();
        image_.reset();
        ASSERT_EQ(calls_.Names(), Lines{"munmap"});
        ExpectCall(calls_.Calls()[0], "munmap", bytes, size);
    }

    SystemCalls calls_;
    std::unique_ptr<FileImage> image_ = std::make_unique<FileImage>();
};

TEST_F(FileImageCalls, SmallImageMakesNone)
{
    image_->Cover(0, kHugePage / 64);
    image_->Cover(kHugePage / 64, 1000);
    image_->PopulateForReading(5000);
    image_.reset();
    EXPECT_EQ(calls_.Names(), Lines{});
}

// Every page that the image touches, and no page more.
TEST_F(FileImageCalls, HeapImageFrom128KiBOnAvoidsHugePages)
{
    for (const std::uint64_t size : {kHugePage / 16, kHugePage - 1}) {
        image_ = std::make_unique<FileImage>();
        calls_.Clear();
        image_->Cover(0, size);
        ASSERT_EQ(calls_.Names(), Lines{"madvise"});
        const SystemCall advice = calls_.Calls()[0];
        const auto begin = reinterpret_cast<std::uintptr_t>(advice.buffer);
        const auto bytes = reinterpret_cast<std::uintptr_t>(image_->Data());
        EXPECT_EQ(begin, bytes / kPage * kPage);
        EXPECT_EQ(begin + advice.size, bytes + size);
        EXPECT_EQ(advice.flags, MADV_NOHUGEPAGE);
    }
}

TEST_F(FileImageCalls, FirstMappingIsAsLongAsItsPagesAndBeginsOnAHugeOne)
{
    for (const std::uint64_t misalignment : {std::uint64_t{0}, kPage, kHugePage / 2, kHugePage - kPage}) {
        image_ = std::make_unique<FileImage>();
        calls_.Clear();
        MapNextAt(misalignment);
        image_->Cover(0, kHugePage + 1);
        ExpectMapping(calls_, *image_, kHugePage + kPage);
        ExpectWritable(kHugePage + kPage);
        ExpectCall(calls_.Calls("madvise").at(0), "madvise", image_->Data(), kHugePage + kPage);
        EXPECT_EQ(calls_.Calls("madvise")[0].flags, MADV_HUGEPAGE);
        ExpectDestructorToUnmap(kHugePage + kPage);
    }
}

// Bytes that are copied first would lie on small pages.
TEST_F(FileImageCalls, HugePagesAreAdvisedBeforeTheBytesAreCopied)
{
    image_->Cover(0, 100);
    image_->Data()[0] = 1;
    int firstByte = -1;
    calls_.On("madvise", 0, [&firstByte](const SystemCall& call) {
        firstByte = *static_cast<const unsigned char*>(call.buffer);
        return std::nullopt;
    });
    image_->Cover(0, kHugePage);
    EXPECT_EQ(firstByte, 0);
    EXPECT_EQ(image_->Data()[0], 1);
}

TEST_F(FileImageCalls, PagesThatAreFullAreNotRoundedUp)
{
    image_->Cover(0, kHugePage + kPage);
    ExpectMapping(calls_, *image_, kHugePage + kPage);
    calls_.Clear();
    image_->Cover(kHugePage, kPage);
    EXPECT_EQ(calls_.Names(), Lines{});
}

TEST_F(FileImageCalls, GrowthDoublesUpToTheEndOfAHugePage)
{
    image_->Cover(0, kHugePage + kPage);
    const unsigned char* const before = image_->Data();
    calls_.Clear();
    MapNextAt(kPage);
    image_->Cover(kHugePage + kPage, 1);
    ExpectMapping(calls_, *image_, 3 * kHugePage);
    ExpectCall(calls_.Calls("mremap").at(0), "mremap", before, 3 * kHugePage);
    EXPECT_EQ(calls_.Calls("mremap")[0].flags, MREMAP_MAYMOVE | MREMAP_FIXED);
    ExpectDestructorToUnmap(3 * kHugePage);
}

TEST_F(FileImageCalls, ImageOfOneHugePageLiesOnItAndMovesWithIt)
{
    image_->Cover(0, kHugePage);
    EXPECT_EQ(calls_.Calls("madvise").at(0).flags, MADV_HUGEPAGE);
    const unsigned char* const before = image_->Data();
    calls_.Clear();
    image_->Cover(kHugePage, 1);
    ExpectCall(calls_.Calls("mremap").at(0), "mremap", before, 2 * kHugePage);
}

TEST_F(FileImageCalls, RefusedMappingIsNotTouched)
{
    calls_.Fail("mmap", ENOMEM);
    EXPECT_THROW(image_->Cover(0, kHugePage), std::bad_alloc);
    EXPECT_EQ(calls_.Names(), Lines{"mmap"});
}

TEST_F(FileImageCalls, RegionIsGivenBackIfTheImageCannotMoveThere)
{
    image_->Cover(0, 2 * kHugePage);
    for (const char* const refused : {"mprotect", "mremap"}) {
        calls_.Clear();
        calls_.Fail(refused, ENOMEM);
        EXPECT_THROW(image_->Cover(0, 2 * kHugePage + 1), std::bad_alloc);
        const SystemCall mapping = calls_.Calls("mmap").at(0);
        EXPECT_EQ(mapping.size, 5 * kHugePage);
        const auto begin = static_cast<std::uint64_t>(mapping.result);
        const SystemCall last = calls_.Calls().back();
        EXPECT_EQ(last.name, "munmap");
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(last.buffer), (begin + kHugePage - 1) / kHugePage * kHugePage);
        EXPECT_EQ(last.size, 4 * kHugePage);
    }
    ExpectDestructorToUnmap(2 * kHugePage);
}

TEST_F(FileImageCalls, TailOfASmallImageIsReservedWithItAndOpenedLater)
{
    image_ = std::make_unique<FileImage>(true);
    MapNextAt(kPage);
    image_->Cover(0, 100);
    ExpectMapping(calls_, *image_, kPage + kTail);
    ExpectWritable(kPage);
    ExpectCall(calls_.Calls("madvise").at(0), "madvise", image_->Data(), kPage);
    EXPECT_EQ(calls_.Calls("madvise")[0].flags, MADV_NOHUGEPAGE);

    calls_.Clear();
    EXPECT_TRUE(image_->OpenTail());
    ASSERT_EQ(calls_.Names(), (Lines{"mprotect", "madvise"}));
    ExpectCall(calls_.Calls()[0], "mprotect", image_->Data() + kPage, kTail);
    EXPECT_EQ(calls_.Calls()[0].mode, static_cast<unsigned>(PROT_READ));
    ExpectCall(calls_.Calls()[1], "madvise", image_->Data() + kPage, kTail);
    EXPECT_EQ(calls_.Calls()[1].flags, MADV_HUGEPAGE);

    calls_.Clear();
    image_->DropTail();
    ASSERT_EQ(calls_.Names(), Lines{"munmap"});
    ExpectCall(calls_.Calls()[0], "munmap", image_->Data() + kPage, kTail);
    ExpectDestructorToUnmap(kPage);
}

TEST_F(FileImageCalls, LargeImageGrowsTogetherWithItsTail)
{
    image_ = std::make_unique<FileImage>(true);
    image_->Cover(0, 2 * kHugePage);
    const unsigned char* const before = image_->Data();
    calls_.Clear();
    image_->Cover(2 * kHugePage, 1);
    EXPECT_EQ(calls_.Calls("mmap").at(0).size, 5 * kHugePage + kTail);
    ExpectCall(calls_.Calls("mremap").at(0), "mremap", before, 4 * kHugePage);
    ExpectCall(calls_.Calls().back(), "munmap", before + 2 * kHugePage, kTail);
    ExpectDestructorToUnmap(4 * kHugePage + kTail);
}

TEST_F(FileImageCalls, SmallImageGrowsTogetherWithItsTailByWholeSmallPages)
{
    image_ = std::make_unique<FileImage>(true);
    image_->Cover(0, 100);
    calls_.Clear();
    image_->Cover(100, kPage);
    ExpectMapping(calls_, *image_, 2 * kPage + kTail, kPage + kTail);
    ExpectWritable(2 * kPage);
    ExpectDestructorToUnmap(2 * kPage + kTail);
}

TEST_F(FileImageCalls, SmallImageMovesToTheHeapIfItsTailIsRefusedLater)
{
    image_ = std::make_unique<FileImage>(true);
    image_->Cover(0, 100);
    image_->Data()[99] = 7;
    calls_.Clear();
    calls_.Fail("mmap", ENOMEM);
    image_->Cover(100, kPage);
    EXPECT_EQ(image_->Data()[99], 7);
    EXPECT_EQ(calls_.Names(), (Lines{"mmap", "munmap"}));  // refused, and the small mapping given back
    EXPECT_EQ(calls_.Calls()[1].size, kPage + kTail);
    calls_.Clear();
    EXPECT_FALSE(image_->OpenTail());
    image_->PopulateForReading(0);
    image_->DropTail();
    image_.reset();
    EXPECT_EQ(calls_.Names(), Lines{});
}

TEST_F(FileImageCalls, ImageDoesWithoutATailThatIsRefused)
{
    for (const std::uint64_t size : {std::uint64_t{100}, 2 * kHugePage}) {
        for (const char* const refused : {"mmap", "mprotect"}) {
            image_ = std::make_unique<FileImage>(true);
            calls_.Clear();
            calls_.Fail(refused, ENOMEM);
            image_->Cover(0, size);
            EXPECT_EQ(image_->Size(), size);
            EXPECT_EQ(calls_.Calls("mmap").size(), size < kHugePage ? 1U : 2U);
            calls_.Clear();
            EXPECT_FALSE(image_->OpenTail());
            image_->DropTail();
            EXPECT_EQ(calls_.Names(), Lines{});
        }
    }
}

TEST_F(FileImageCalls, DroppedTailDoesNotComeBack)
{
    image_ = std::make_unique<FileImage>(true);
    image_->Cover(0, 100);
    image_->DropTail();
    calls_.Clear();
    image_->Cover(100, kPage);
    EXPECT_FALSE(image_->OpenTail());
    EXPECT_EQ(calls_.Calls("mmap").size(), 0U);
}

TEST_F(FileImageCalls, WholeUntouchedPagesArePopulated)
{
    constexpr int kPopulateRead = 22;  // MADV_POPULATE_READ
    image_->Cover(0, 2 * kHugePage);
    calls_.Clear();
    image_->PopulateForReading(kPage + 1);
    ASSERT_EQ(calls_.Names(), Lines{"madvise"});
    ExpectCall(calls_.Calls()[0], "madvise", image_->Data() + 2 * kPage, 2 * kHugePage - 2 * kPage);
    EXPECT_EQ(calls_.Calls()[0].flags, kPopulateRead);
}

TEST_F(FileImageCalls, NothingIsPopulatedWhereEveryPageIsTouched)
{
    image_->Cover(0, 2 * kHugePage - 1);
    calls_.Clear();
    for (const std::uint64_t from : {2 * kHugePage - kPage + 1, 2 * kHugePage - 1, 2 * kHugePage}) {
        image_->PopulateForReading(from);
    }
    image_->Cover(0, 2 * kHugePage);
    image_->PopulateForReading(2 * kHugePage);
    EXPECT_EQ(calls_.Names(), Lines{});
}

}  // namespace
