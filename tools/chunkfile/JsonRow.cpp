// Only this source includes simdjson.
#include "chunkfile/JsonRow.h"

#include <simdjson.h>

#include "chunkfile/Json.h"

namespace Corvane::FileTool {

namespace ondemand = simdjson::ondemand;

namespace {

static_assert(TextStream::kPadding >= simdjson::SIMDJSON_PADDING);

simdjson::simdjson_error NotJson()
{
    return simdjson::simdjson_error(simdjson::TAPE_ERROR);
}

// Of a text with TextStream::kPadding readable bytes after it.
ondemand::document DocumentOf(ondemand::parser& parser, std::string_view json)
{
    const auto fails = [&] { return parser.allocate(json.size()) != simdjson::SUCCESS; };
    if (json.size() > parser.capacity() && (fails() || fails())) {  // it misses some failures, and then tries again
        throw std::bad_alloc();
    }
    return parser.iterate(json.data(), json.size(), json.size() + TextStream::kPadding);
}

// simdjson finds where an object or array ends. The grammar finds whether it is JSON in between.
void TakeNested(std::string_view json, std::string& bytes)
{
    if (IsCompactJson(json)) {
        bytes = json;
    } else if (FaultOf(json, kMostNesting)) {
        throw NotJson();
    } else {
        std::size_t size = 0;
        bytes.resize(json.size() + simdjson::SIMDJSON_PADDING);
        if (simdjson::minify(json.data(), json.size(), bytes.data(), size) != simdjson::SUCCESS) {
            throw NotJson();
        }
        bytes.resize(size);
    }
    DecodeBase64Object(bytes);
}

void TakeValue(ondemand::value value, std::string& bytes)
{
    const std::string_view token = WithoutSpace(value.raw_json_token());
    switch (token.front()) {
        case '{':
        case '[':
            TakeNested(WithoutSpace(token.front() == '{' ? value.get_object().value().raw_json()
                                                         : value.get_array().value().raw_json()),
                       bytes);
            return;
        case '"':
            if (token.find('\\') == std::string_view::npos && token.size() >= 2 && token.back() == '"') {
                value.get_raw_json_string().value();  // goes on: a string that is left alone could be taken for a name
                bytes = token.substr(1, token.size() - 2);  // faster than get_string where the processor is not known
            } else {
                bytes = std::string_view(value.get_string());
            }
            return;
        default:
            bytes = IsCompactJson(token) ? token : throw NotJson();
    }
}

ondemand::value MemberOf(ondemand::value value, const std::string& name)
{
    if (value.type() == ondemand::json_type::array) {
        std::size_t index = 0;
        for (auto element : value.get_array()) {
            if (std::to_string(index++) == name) {
                return element.value();
            }
        }
        throw NotJson();
    }
    for (auto field : value.get_object()) {
        if (field.unescaped_key().value() == name) {
            return field.value();
        }
    }
    throw NotJson();
}

}  // namespace

class JsonRow::Parser {
public:
    explicit Parser(bool catLines) : form_(catLines ? Form::Unknown : Form::Plain) {}

    void Parse(std::string_view text, Row& row)
    {
        row.time.reset();
        if (form_ != Form::Cat) {
            Read(text, [&](ondemand::object object) { TakeFields(object, row.fields); });
            form_ = form_ == Form::Unknown && IsCatLine(row.fields) ? Form::Cat : Form::Plain;
        }
        if (form_ == Form::Cat) {
            Read(text, [&](ondemand::object object) { TakeCatLine(object, row); });
        }
    }

private:
    enum class Form { Unknown, Plain, Cat };

    struct Member {
        const char* name;  // in the text
        char first;        // of the value
    };

    void Read(std::string_view text, const auto& take)
    {
        text_ = text;
        try {
            ondemand::document document = DocumentOf(parser_, text);
            take(document.get_object());
            if (document.current_location().error() != simdjson::OUT_OF_BOUNDS) {  // something follows
                throw NotJson();
            }
        } catch (const simdjson::simdjson_error& error) {
            Explain(error.what());
        }
    }

    // simdjson does not say where. The grammar does.
    [[noreturn]] void Explain(const char* reason) const
    {
        if (const auto fault = FaultOf(text_, kMostNesting + 1)) {
            throw BadText(fault->position, fault->reason);
        }
        const std::size_t begin = text_.find_first_not_of(kSpace);
        reason = form_ == Form::Cat ? "not a line of cat, as the first row is" : reason;
        throw BadText(begin, text_[begin] == '{' ? reason : "a row is an object");
    }

    bool IsCatLine(const Glue::Fields& fields) const
    {
        const auto is = [&](std::size_t index, const char* name, char first) {
            return fields[index].first == name && members_[index].first == first;
        };
        return fields.size() == 2 &&
               ((is(0, "time", '"') && is(1, "fields", '{')) || (is(1, "time", '"') && is(0, "fields", '{')));
    }

    void TakeCatLine(ondemand::object object, Row& row)
    {
        bool hasFields = false;
        for (auto field : object) {
            const std::string_view name = field.unescaped_key();
            ondemand::value value = field.value();
            if (name == "time" && !row.time && value.type() == ondemand::json_type::string) {
                row.time = std::string_view(value.get_string());
            } else if (name == "fields" && !hasFields && value.type() == ondemand::json_type::object) {
                TakeFields(value.get_object(), row.fields);
                hasFields = true;
            } else {
                throw NotJson();
            }
        }
        if (!row.time || !hasFields) {
            throw NotJson();
        }
    }

    void TakeFields(ondemand::object object, Glue::Fields& fields)
    {
        members_.clear();
        for (auto field : object) {
            const std::size_t index = members_.size();
            if (index == fields.size()) {
                fields.emplace_back();
                hasNewNames_ = true;
            }
            members_.push_back({field.key().value().raw(), '\0'});
            TakeName(field.unescaped_key(), fields[index].first);
            ondemand::value value = field.value();
            members_.back().first = value.raw_json_token().front();
            TakeValue(value, fields[index].second);
        }
        fields.resize(members_.size());
        if (hasNewNames_) {
            CheckNames(fields);
        }
    }

    void CheckNames(const Glue::Fields& fields)
    {
        if (const std::size_t second = Duplicate(fields); second != fields.size()) {
            throw BadText(static_cast<std::size_t>(members_[second].name - text_.data()) - 1,
                          "a second field of the name " + fields[second].first);
        }
        hasNewNames_ = false;
    }

    // Leaves a name alone that the last row had there.
    void TakeName(std::string_view name, std::string& into)
    {
        if (name.starts_with("base64:")) {
            decoded_ = name;
            DecodeBase64Mark(decoded_);
            name = decoded_;
        }
        if (into != name) {
            into = name;
            hasNewNames_ = true;
        }
    }

    ondemand::parser parser_;
    Form form_;
    std::string_view text_;
    std::vector<Member> members_;  // of this row
    bool hasNewNames_ = true;      // since names were last found to differ from each other
    std::string decoded_;
};

JsonRow::JsonRow(bool catLines) : parser_(std::make_unique<Parser>(catLines)) {}

JsonRow::~JsonRow() = default;

void JsonRow::Parse(std::string_view text, Row& row)
{
    parser_->Parse(text, row);
}

std::optional<std::string> JsonAt(const std::string& json, std::span<const std::string> tokens)
{
    const std::string padded = json + std::string(TextStream::kPadding, ' ');
    ondemand::parser parser;
    try {
        ondemand::document document = DocumentOf(parser, std::string_view(padded).substr(0, json.size()));
        ondemand::value value = document;
        for (const std::string& token : tokens) {
            value = MemberOf(value, token);
        }
        std::string bytes;
        TakeValue(value, bytes);
        return bytes;
    } catch (const simdjson::simdjson_error&) {
        return {};
    }
}

}  // namespace Corvane::FileTool
