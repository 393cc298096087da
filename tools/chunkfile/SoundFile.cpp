#include "chunkfile/SoundFile.h"

#include <stdexcept>

namespace Corvane::FileTool {

using Pellin::DataChunk;

const DataChunk* SoundFile::Next()
{
    try {
        if (!scanner_.Next()) {
            if (scanner_.GetEnd() != File::DataChunkFileScanner::End::AllRead) {
                throw NeedsPlan();
            }
            return nullptr;
        }
    } catch (const std::runtime_error&) {
        throw NeedsPlan();
    }
    const DataChunk& chunk = scanner_.GetChunk();
    const Time::TimePoint time = chunk.GetTimePoint();
    if (last_ && !(*last_ < time)) {
        throw NeedsPlan();
    }
    last_.emplace(time);
    terminal_.Progress(options_.output, scanner_.GetPosition(), 2 * input_.Size());
    return &chunk;
}

std::string SoundFile::Where()
{
    return PlaceText(input_.Name(), scanner_.GetPosition(), scanner_.GetNumberRead() - 1);
}

void SoundFile::Compare(const WrittenRecord& record)
{
    terminal_.Progress(options_.output, input_.Size() + record.position, 2 * input_.Size());
    if (!fresh_) {
        fresh_.emplace(record.file);
    }
    if (!AreEqual(bytes_, record.position, *fresh_, record.position, record.size)) {
        throw std::runtime_error(PlaceText(input_.Name(), record.position, record.number) + ": its copy differs");
    }
}

void SoundFile::Confirm()
{
    RefuseChanged(input_);
}

}  // namespace Corvane::FileTool
