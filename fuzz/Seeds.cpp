#include "Seeds.h"

#include <cstring>
#include <initializer_list>
#include <vector>

#include "Support.h"

namespace fuzz {

namespace {

using Corvane::Time::TimePoint;

DataChunk Chunk(std::int64_t time, std::initializer_list<std::pair<const char*, std::size_t>> fields)
{
    DataChunk chunk{TimePoint(time)};
    for (const auto& [name, size] : fields) {
        chunk.Set(name, std::string(size, static_cast<char>('a' + time)));
    }
    return chunk;
}

std::string Word(std::uint64_t value)
{
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::string File(const std::vector<DataChunk>& chunks)
{
    std::string file = Word(2) + Word(chunks.size());
    for (const DataChunk& chunk : chunks) {
        file += RecordOf(chunk);
    }
    return file;
}

std::string With(std::string file, std::size_t position, const std::string& bytes)
{
    return file.replace(position, bytes.size(), bytes);
}

// Inputs that choose the maximum size: none, the size of the file, a greater one, and a fixed one.
std::string Unbounded(const std::string& file)
{
    return std::string({'\0', '\0', '\x05', '\0'}) + file;
}

std::string Exact(const std::string& file)
{
    return std::string({'\x01', '\x10', '\x00', '\x7f'}) + file;
}

std::string Longer(const std::string& file)
{
    return std::string({'\x02', '\xff', '\x01', '\x80'}) + file;
}

std::string OwnSize(const std::string& file)
{
    return std::string({'\x03', '\x08', '\xc8', '\xff'}) + file;
}

}  // namespace

std::map<std::string, std::string> Seeds()
{
    const DataChunk bare = Chunk(0, {});
    const DataChunk small = Chunk(1, {{"p", 3}});
    const DataChunk several = Chunk(2, {{"a", 0}, {"cpu", 20}, {"memory", 1}, {"p", 8}});
    const DataChunk large = Chunk(3, {{"p", 1500}});
    const std::string sound = File({bare, small, several, large});
    const std::string fill(300, '\0');
    const std::size_t third = 16 + RecordOf(bare).size() + RecordOf(small).size();
    return {
        {"empty", ""},
        {"header_alone", Exact(File({}))},
        {"header_alone_with_room", Longer(File({}))},
        {"header_cut", Unbounded(Word(2) + "abc")},
        {"sound_unbounded", Unbounded(sound)},
        {"sound_exact", Exact(sound)},
        {"sound_longer", Longer(sound)},
        {"sound_own_size", OwnSize(sound)},
        {"sound_with_fill", Unbounded(sound + fill)},
        {"one_bare", Unbounded(File({bare}))},
        {"one_several", OwnSize(File({several}))},
        {"times_descend", Longer(File({several, small, bare}))},
        {"times_equal", Unbounded(File({small, small, bare}))},
        {"cut_in_head", Unbounded(sound.substr(0, third + 20))},
        {"cut_in_directory", Exact(sound.substr(0, third + 50))},
        {"cut_in_value", Longer(sound.substr(0, sound.size() - 1))},
        {"count_too_high", Unbounded(With(sound, 8, Word(9)))},
        {"count_too_high_with_fill", Longer(With(sound + fill, 8, Word(UINT64_MAX)))},
        {"count_too_low", Unbounded(With(sound, 8, Word(2)))},
        {"count_zero", Exact(With(sound, 8, Word(0)))},
        {"version_zero", Unbounded(With(sound, 0, Word(0)))},
        {"bit_flipped_in_mark", Unbounded(With(sound, third, "\x01"))},
        {"bit_flipped_in_size", Unbounded(With(sound, third + 4, "\xff"))},
        {"byte_changed_in_value", Longer(With(sound, sound.size() - 5, "!"))},
        {"torn_overwrite", Exact(With(sound, 16, RecordOf(Chunk(9, {{"p", 30}}))))},
        {"written_twice", Unbounded(sound + sound)},
    };
}

}  // namespace fuzz
