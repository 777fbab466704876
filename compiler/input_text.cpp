#include "input_text.h"

#include <fmt/format.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "input_error.h"

namespace offlinetz {

namespace {

// Ignores all values and keeps the place of the error.
class ErrorPlace : public nlohmann::json_sax<nlohmann::json> {
  public:
    size_t Position() const { return mPosition; }

    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool start_object(std::size_t) override { return true; }
    bool key(string_t&) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::json::exception&) override {
        mPosition = position;
        return false;
    }

  private:
    size_t mPosition = 0;  // The number of bytes read up to the error, from 1; 0: no error.
};

}  // namespace

std::string ReadText(const std::string& path, uint64_t maxBytes) {
    errno = 0;
    gzFile file = path == "-" ? gzdopen(dup(STDIN_FILENO), "rb") : gzopen(path.c_str(), "rb");
    if (file == nullptr) ThrowInputError(path, errno != 0 ? std::strerror(errno) : "out of memory");
    std::string text;
    std::vector<char> buffer(size_t{1} << 20);
    int got;
    while ((got = gzread(file, buffer.data(), static_cast<unsigned>(buffer.size()))) > 0) {
        text.append(buffer.data(), static_cast<size_t>(got));
        if (text.size() > maxBytes) break;
    }
    int code = Z_OK;
    const std::string reason = gzerror(file, &code);
    const int closed = gzclose(file);
    if (text.size() > maxBytes) {
        ThrowInputError(path, fmt::format("holds more than {} bytes; --max-input raises the limit",
                                          maxBytes));
    }
    if (got < 0 || code != Z_OK || closed != Z_OK) {
        ThrowInputError(path,
                        "cannot be read: " + (reason.empty() ? "the file is cut short" : reason));
    }
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
        text.erase(0, kByteOrderMark.size());
    }
    return text;
}

std::vector<std::string_view> SplitFeatures(std::string_view text) {
    constexpr char kRecordSeparator = '\x1E';
    constexpr std::string_view kBlanks = " \t\r\n";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    const bool isSequence = text[first] == kRecordSeparator;
    std::vector<std::string_view> features;
    for (size_t at = first; at < text.size();) {
        const size_t end =
                std::min(text.find(isSequence ? kRecordSeparator : '\n', at), text.size());
        const std::string_view part = text.substr(at, end - at);
        if (part.find_first_not_of(kBlanks) != std::string_view::npos) features.push_back(part);
        at = end + 1;
    }
    return features;
}

std::string PlaceOfJsonError(std::string_view text) {
    ErrorPlace place;
    nlohmann::json::sax_parse(text, &place);
    if (place.Position() == 0) return "";
    // If the text ends too early, this is the position of the byte that is missing.
    const auto end =
            text.begin() + static_cast<std::ptrdiff_t>(std::min(place.Position() - 1, text.size()));
    const auto line = std::count(text.begin(), end, '\n') + 1;
    const auto lineStart = std::find(std::make_reverse_iterator(end), text.rend(), '\n').base();
    return fmt::format("at line {}, column {} (byte {})", line, end - lineStart + 1,
                       end - text.begin() + 1);
}

}  // namespace offlinetz
