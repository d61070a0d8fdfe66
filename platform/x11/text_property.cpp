#include "platform/x11/text_property.h"

#include <iconv.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "platform/unicode_text.h"

namespace pv::x11 {

namespace {

constexpr char kEscape = 0x1B;
constexpr uint8_t kCsi = 0x9B;

// Converts text in other character sets to UTF-8 through the C library's
// iconv, one converter per set for the length of one decoding.
class Converter {
public:
    Converter() = default;
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;
    ~Converter() {
        for (auto& [name, cd] : open_)
            if (cd != invalid()) iconv_close(cd);
    }

    // The UTF-8 text of bytes in charset; nullopt when the set is unknown
    // here or the bytes are not valid in it.
    std::optional<std::string> convert(const std::string& charset, std::string_view bytes) {
        iconv_t cd = open(charset);
        if (cd == invalid()) return std::nullopt;
        iconv(cd, nullptr, nullptr, nullptr, nullptr);
        std::string in(bytes);
        std::string out(4 * bytes.size() + 8, '\0');
        char* inPtr = in.data();
        char* outPtr = out.data();
        size_t inLeft = in.size(), outLeft = out.size();
        if (iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft) == static_cast<size_t>(-1) || inLeft != 0)
            return std::nullopt;
        out.resize(out.size() - outLeft);
        return repairUtf8(out);
    }

private:
    static iconv_t invalid() { return reinterpret_cast<iconv_t>(-1); }
    iconv_t open(const std::string& charset) {
        auto it = open_.find(charset);
        if (it == open_.end()) it = open_.emplace(charset, iconv_open("UTF-8", charset.c_str())).first;
        return it->second;
    }
    std::map<std::string, iconv_t> open_;
};

// What a half of the code table (GL: 0x21..0x7E, GR: 0xA0..0xFF) holds, and
// how one of its characters is handed to iconv.
struct CharacterSet {
    enum Kind {
        Ascii,     // GL only, as it is
        Latin1,    // ISO 8859-1's right half, as it is
        OneByte,   // a 94- or 96-character set: one byte, high bit set, in `iconvName`
        TwoBytes,  // a 94×94 set: two bytes, high bits set, after `prefix` (if any), in an EUC encoding
        JisRoman,  // ASCII but for ¥ and ‾
        Unknown1,  // a set we cannot read: one byte per character
        Unknown2,  // the same, two bytes per character
    } kind = Ascii;
    const char* iconvName = nullptr;
    char prefix = 0;
};

// Final bytes of the 96-character sets (ESC - F) and the ISO 8859 parts they are.
CharacterSet ninetySixSet(char final) {
    static const std::map<char, const char*> sets{
        {'B', "ISO-8859-2"},  {'C', "ISO-8859-3"},  {'D', "ISO-8859-4"},  {'F', "ISO-8859-7"},  {'G', "ISO-8859-6"},
        {'H', "ISO-8859-8"},  {'L', "ISO-8859-5"},  {'M', "ISO-8859-9"},  {'V', "ISO-8859-10"}, {'T', "TIS-620"},
        {'Y', "ISO-8859-13"}, {'_', "ISO-8859-14"}, {'b', "ISO-8859-15"}, {'f', "ISO-8859-16"},
    };
    if (final == 'A') return {CharacterSet::Latin1};
    auto it = sets.find(final);
    return it == sets.end() ? CharacterSet{CharacterSet::Unknown1} : CharacterSet{CharacterSet::OneByte, it->second};
}

// Final bytes of the 94×94 sets (ESC $ ( F, ESC $ ) F): GB 2312, JIS X 0208, KS C 5601, JIS X 0212.
CharacterSet doubleByteSet(char final) {
    switch (final) {
    case 'A':
        return {CharacterSet::TwoBytes, "EUC-CN"};
    case '@':
    case 'B':
        return {CharacterSet::TwoBytes, "EUC-JP"};
    case 'C':
        return {CharacterSet::TwoBytes, "EUC-KR"};
    case 'D':
        return {CharacterSet::TwoBytes, "EUC-JP", '\x8F'};
    default:
        return {CharacterSet::Unknown2};
    }
}

// 94-character sets: ASCII, JIS X 0201 Roman and Katakana.
CharacterSet ninetyFourSet(char final) {
    switch (final) {
    case 'B':
        return {CharacterSet::Ascii};
    case 'J':
        return {CharacterSet::JisRoman};
    case 'I':
        return {CharacterSet::OneByte, "EUC-JP", '\x8E'};
    default:
        return {CharacterSet::Unknown1};
    }
}

std::string lowercase(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

void appendReplacements(std::string& out, size_t count) {
    for (size_t k = 0; k < count; ++k) appendUtf8(out, kReplacementCharacter);
}

// An extended segment's text: "name STX text", octetsPerCharacter 0 for a
// variable number. Named sets iconv knows ("koi8-r", "big5-0") are read too.
void appendExtendedSegment(std::string& out, std::string_view segment, int octetsPerCharacter, Converter& converter) {
    const size_t stx = segment.find('\x02');
    if (stx == std::string_view::npos) return appendReplacements(out, 1);
    std::string name = lowercase(segment.substr(0, stx));
    const std::string_view text = segment.substr(stx + 1);
    if (name == "utf-8" || (name == "iso10646-1" && octetsPerCharacter == 0)) return void(out += repairUtf8(text));
    if (name == "iso8859-1") return void(out += latin1ToUtf8(text));
    if (name == "iso10646-1" && octetsPerCharacter == 2) name = "UCS-2BE";
    if (name.ends_with("-0")) name.resize(name.size() - 2);  // X's registry-encoding form: "big5-0"
    if (auto text8 = converter.convert(name, text)) return void(out += *text8);
    const size_t width = octetsPerCharacter > 0 ? static_cast<size_t>(octetsPerCharacter) : text.size();
    appendReplacements(out, width > 0 ? (text.size() + width - 1) / width : 1);
}

}  // namespace

std::string decodeCompoundText(std::string_view in) {
    std::string out;
    Converter converter;
    CharacterSet gl{CharacterSet::Ascii};
    CharacterSet gr{CharacterSet::Latin1};
    size_t i = 0;
    const size_t n = in.size();
    const auto byteAt = [&](size_t k) { return static_cast<uint8_t>(in[k]); };

    while (i < n) {
        const uint8_t b = byteAt(i);
        if (b == static_cast<uint8_t>(kEscape)) {
            // ESC, intermediate bytes 0x20..0x2F, one final byte 0x30..0x7E.
            size_t k = i + 1;
            while (k < n && byteAt(k) >= 0x20 && byteAt(k) <= 0x2F) ++k;
            if (k >= n) break;  // cut short: nothing readable follows
            const std::string_view intermediates = in.substr(i + 1, k - i - 1);
            const char final = in[k];
            i = k + 1;
            if (intermediates == "(") {
                gl = ninetyFourSet(final);
            } else if (intermediates == ")") {
                gr = ninetyFourSet(final);
            } else if (intermediates == "-") {
                gr = ninetySixSet(final);
            } else if (intermediates == "$(" || intermediates == "$") {
                gl = doubleByteSet(final);
            } else if (intermediates == "$)") {
                gr = doubleByteSet(final);
            } else if (intermediates == "%" && final == 'G') {
                // UTF-8 up to ESC % @ (ESC never occurs inside UTF-8).
                const size_t end = in.find("\x1b%@", i);
                out += repairUtf8(in.substr(i, end == std::string_view::npos ? n - i : end - i));
                i = end == std::string_view::npos ? n : end + 3;
            } else if (intermediates == "%/" && final >= '0' && final <= '4') {
                if (i + 2 > n) break;
                const size_t length = static_cast<size_t>(byteAt(i) & 0x7F) << 7 | (byteAt(i + 1) & 0x7F);
                const std::string_view segment = in.substr(i + 2, std::min(length, n - i - 2));
                appendExtendedSegment(out, segment, final - '0', converter);
                i += 2 + segment.size();
            }
            continue;  // other sequences switch nothing we decode
        }
        if (b == kCsi) {
            // Direction changes: CSI, parameters 0x30..0x3F, intermediates 0x20..0x2F, final 0x40..0x7E.
            ++i;
            while (i < n && byteAt(i) >= 0x20 && byteAt(i) <= 0x3F) ++i;
            if (i < n) ++i;
            continue;
        }
        if (b <= 0x20 || b == 0x7F || (b >= 0x80 && b < 0xA0)) {
            appendUtf8(out, b);  // space and controls, whatever the sets
            ++i;
            continue;
        }
        const CharacterSet& set = b < 0x80 ? gl : gr;
        const auto high = static_cast<char>(b | 0x80);
        // A two-byte character takes its second byte from the same half.
        const bool pair = i + 1 < n && (byteAt(i + 1) & 0x80) == (b & 0x80) && (byteAt(i + 1) & 0x7F) > 0x20 &&
                          (byteAt(i + 1) & 0x7F) < 0x7F;
        switch (set.kind) {
        case CharacterSet::Ascii:
            out.push_back(static_cast<char>(b));
            break;
        case CharacterSet::Latin1:
            appendUtf8(out, b);
            break;
        case CharacterSet::JisRoman:
            appendUtf8(out, (b & 0x7F) == 0x5C ? U'\u00A5' : (b & 0x7F) == 0x7E ? U'\u203E' : char32_t(b & 0x7F));
            break;
        case CharacterSet::OneByte: {
            const std::string bytes = set.prefix ? std::string{set.prefix, high} : std::string{high};
            out += converter.convert(set.iconvName, bytes).value_or("\xEF\xBF\xBD");
            break;
        }
        case CharacterSet::TwoBytes: {
            std::string bytes = set.prefix ? std::string{set.prefix} : std::string();
            bytes += high;
            if (pair) bytes += static_cast<char>(in[i + 1] | 0x80);
            out += (pair ? converter.convert(set.iconvName, bytes) : std::nullopt).value_or("\xEF\xBF\xBD");
            if (pair) ++i;
            break;
        }
        case CharacterSet::Unknown1:
            appendUtf8(out, kReplacementCharacter);
            break;
        case CharacterSet::Unknown2:
            appendUtf8(out, kReplacementCharacter);
            if (pair) ++i;
            break;
        }
        ++i;
    }
    return out;
}

std::string decodeTextProperty(std::string_view bytes, TextEncoding encoding) {
    switch (encoding) {
    case TextEncoding::Latin1:
        return latin1ToUtf8(bytes);
    case TextEncoding::CompoundText:
        return decodeCompoundText(bytes);
    case TextEncoding::Utf8:
        break;
    }
    return repairUtf8(bytes);
}

}  // namespace pv::x11
