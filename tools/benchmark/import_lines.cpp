// What an import cannot do without: import_lines LINES FILE parses lines of cat with simdjson, makes the chunks, appends
// them, and syncs the file. It checks nothing, and takes the number of a line for its time.
#include <fcntl.h>
#include <simdjson.h>
#include <unistd.h>

#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <string>

#include "Corvane/File/DataChunkFileAppender.h"

using namespace simdjson::ondemand;

namespace {

std::string BytesOf(value field)
{
    return field.type() == json_type::string ? std::string(std::string_view(field.get_string()))
                                             : std::string(field.raw_json_token());
}

void Import(const std::string& lines, Corvane::File::DataChunkFileAppender& file)
{
    const simdjson::padded_string text = simdjson::padded_string::load(lines);
    parser parser;
    document_stream rows = parser.iterate_many(text);
    std::int64_t number = 0;
    for (auto row : rows) {
        Corvane::Pellin::DataChunk chunk{Corvane::Time::TimePoint(number++)};
        for (auto field : row["fields"].get_object()) {
            const std::string name{std::string_view(field.unescaped_key())};
            chunk.Set(name, BytesOf(field.value()));
        }
        if (!file.Append(chunk)) {
            throw std::runtime_error("refused");
        }
    }
}

}  // namespace

int main(int count, char** arguments)  // NOLINT(bugprone-exception-escape): an exception may end this program
{
    if (count != 3) {
        std::cerr << "usage: import_lines LINES FILE\n";
        return 2;
    }
    {
        Corvane::File::DataChunkFileAppender file(arguments[2], /* reopen = */ false, /* maxSize = */ 0);
        Import(arguments[1], file);
    }
    const int fd = ::open(arguments[2], O_RDONLY | O_CLOEXEC);
    return fd != -1 && ::fsync(fd) == 0 ? 0 : 1;
}
