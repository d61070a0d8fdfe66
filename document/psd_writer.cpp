#include "document/psd_writer.h"

#include <cstdio>
#include <functional>
#include <limits>
#include <optional>

#include "document/byte_buffer.h"
#include "document/layer_preparation.h"
#include "document/unpremultiply.h"
#include "platform/build_info.h"
#include "platform/unicode_text.h"

namespace pv {

namespace {

constexpr int64_t kMaxLayerCount = 32767;  // the count is a signed 16-bit number

void appendBytes(std::vector<uint8_t>& b, const std::string& s) { b.insert(b.end(), s.begin(), s.end()); }

void replaceAll(std::string& text, const std::string& placeholder, const std::string& value) {
    for (size_t at = text.find(placeholder); at != std::string::npos; at = text.find(placeholder, at + value.size()))
        text.replace(at, placeholder.size(), value);
}

std::string xmlEscaped(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (char ch : text) {
        switch (ch) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += ch;
        }
    }
    return out;
}

size_t namePadding(size_t n) { return (4 - (n + 1) % 4) % 4; }

// The Unicode layer name block: "8BIMluni", the data length, the count of
// UTF-16 code units, the code units big-endian, zeros to a multiple of 4.
size_t unicodeNameDataSize(size_t units) { return (4 + 2 * units + 3) / 4 * 4; }

void appendUnicodeName(std::vector<uint8_t>& b, const std::string& name) {
    const std::u16string units = utf8ToUtf16(name);
    const size_t size = unicodeNameDataSize(units.size());
    appendBytes(b, "8BIMluni");
    appendValue(b, static_cast<int64_t>(size), 4);
    appendValue(b, static_cast<int64_t>(units.size()), 4);
    for (char16_t u : units) appendValue(b, u, 2);
    b.insert(b.end(), size - 4 - 2 * units.size(), 0);
}

size_t unicodeNameBlockSize(const std::string& name) { return 12 + unicodeNameDataSize(utf8ToUtf16(name).size()); }

// The rectangle a record states: a pixel layer's bounds, a marker's zero rectangle.
std::optional<LayerPixelBounds> recordBounds(const LayerElement& e) {
    if (e.type != LayerTypePixel) return LayerPixelBounds{};
    return layerPixelBounds(e.location);
}

void appendLayerRecord(std::vector<uint8_t>& b, const LayerElement& e, const LayerPixelBounds& r) {
    appendValue(b, r.top, 4);
    appendValue(b, r.left, 4);
    appendValue(b, r.bottom(), 4);
    appendValue(b, r.right(), 4);
    appendValue(b, 4, 2);
    static const int16_t channelIds[4] = {0, 1, 2, -1};
    for (int c = 0; c < 4; ++c) {
        appendValue(b, channelIds[c], 2);
        appendValue(b, e.channelSizes[c], 4);
    }
    appendBytes(b, e.type == LayerTypeGroupEnd ? "8BIMpass" : "8BIMnorm");  // a group passes its layers through
    b.push_back(255);                                                       // opacity
    b.push_back(0);                                                         // clipping: base
    b.push_back(e.type == LayerTypePixel ? 0 : 0x18);                       // markers: pixel data irrelevant
    b.push_back(0);                                                         // filler

    const std::string name = psdLayerName(e.name);
    const size_t pad = namePadding(name.size());
    const size_t divider = e.type == LayerTypeGroupStart ? 16 : e.type == LayerTypeGroupEnd ? 24 : 0;
    const size_t unicodeName = unicodeNameBlockSize(e.name);
    appendValue(b, static_cast<int64_t>(8 + 1 + name.size() + pad + unicodeName + divider), 4);
    appendValue(b, 0, 4);  // layer mask data
    appendValue(b, 0, 4);  // layer blending ranges
    b.push_back(static_cast<uint8_t>(name.size()));
    appendBytes(b, name);
    b.insert(b.end(), pad, 0);
    appendUnicodeName(b, e.name);
    if (e.type == LayerTypeGroupStart) {
        appendBytes(b, "8BIMlsct");
        appendValue(b, 4, 4);
        appendValue(b, 3, 4);  // bounding section divider
    } else if (e.type == LayerTypeGroupEnd) {
        appendBytes(b, "8BIMlsct");
        appendValue(b, 12, 4);
        appendValue(b, 2, 4);  // closed folder
        appendBytes(b, "8BIMpass");
    }
}

// Pixels one PackBits row decodes to, or -1 when a packet runs past its end.
int64_t decodedRowLength(const uint8_t* row, size_t length) {
    int64_t pixels = 0;
    for (size_t i = 0; i < length;) {
        const auto header = static_cast<int8_t>(row[i++]);
        if (header >= 0) {
            i += static_cast<size_t>(header) + 1;
            if (i > length) return -1;
            pixels += header + 1;
        } else if (header != -128) {
            if (i++ >= length) return -1;
            pixels += 1 - header;
        }
    }
    return pixels;
}

// Why one channel block does not hold exactly w x h pixels, or empty.
std::string blockProblem(const uint8_t* block, size_t size, uint64_t w, uint64_t h) {
    const unsigned code = block[0] << 8 | block[1];
    if (code == 0) {
        if (size - 2 != w * h) return "holds " + std::to_string(size - 2) + " raw bytes";
        return {};
    }
    if (code != 1) return "has the unknown compression " + std::to_string(code);
    if (size - 2 < 2 * h) return "is too short for " + std::to_string(h) + " row counts";
    const uint8_t* counts = block + 2;
    const uint8_t* row = counts + 2 * h;
    const uint8_t* end = block + size;
    for (uint64_t y = 0; y < h; ++y) {
        const size_t n = static_cast<size_t>(counts[2 * y] << 8 | counts[2 * y + 1]);
        if (n > static_cast<size_t>(end - row)) return "has rows running past its end";
        const int64_t pixels = decodedRowLength(row, n);
        if (pixels != static_cast<int64_t>(w))
            return "has a row of " + (pixels < 0 ? std::string("broken packets") : std::to_string(pixels) + " pixels");
        row += n;
    }
    if (row != end) return "holds " + std::to_string(end - row) + " bytes after its rows";
    return {};
}

// Why an entry's channel data does not fill the rectangle its record states, or empty.
std::string channelDataProblem(const LayerElement& e, const LayerPixelBounds& r) {
    size_t at = 0;
    for (int c = 0; c < 4; ++c) {
        const auto size = static_cast<size_t>(e.channelSizes[c]);
        const std::string problem = blockProblem(e.imageData.data() + at, size, static_cast<uint64_t>(r.width),
                                                 static_cast<uint64_t>(r.height));
        if (!problem.empty())
            return "layer \"" + e.name + "\" does not match its " + std::to_string(r.width) + "x" +
                   std::to_string(r.height) + " rectangle: channel " + std::to_string(c) + " " + problem;
        at += size;
    }
    return {};
}

// Why an entry cannot be written, or empty. Every entry is checked before any
// file is touched, so that no file a reader refuses is ever written.
std::string entryProblem(const LayerElement& e) {
    if (e.type < LayerTypePixel || e.type > LayerTypeGroupEnd)
        return "entry \"" + e.name + "\" has the unknown type " + std::to_string(e.type);
    if (!e.ready) return "layer \"" + e.name + "\" is not prepared";
    uint64_t sum = 0;
    for (int32_t s : e.channelSizes) {
        if (s < 2) return "layer \"" + e.name + "\" has a channel block shorter than its compression code";
        sum += static_cast<uint64_t>(s);
    }
    if (sum != e.imageData.size())
        return "layer \"" + e.name + "\" holds " + std::to_string(e.imageData.size()) +
               " bytes of channel data, its channel sizes add up to " + std::to_string(sum);
    const auto bounds = recordBounds(e);
    if (!bounds)
        return "layer \"" + e.name + "\" has the rectangle " + rectToString(e.location) +
               ", which a document cannot hold";
    return channelDataProblem(e, *bounds);
}

std::tm localNow() {
    const std::time_t now = std::time(nullptr);
    std::tm tm{};
    localtime_r(&now, &tm);
    return tm;
}

std::string lastPathComponent(const std::string& path) {
    const auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

std::string asciiText(const std::string& utf8) {
    std::string out;
    out.reserve(utf8.size());
    const size_t n = utf8.size();
    for (size_t i = 0; i < n;) {
        const auto b = static_cast<unsigned char>(utf8[i]);
        if (b < 0x80) {
            out += static_cast<char>(b);
            ++i;
            continue;
        }
        // One '?' per character: a lead byte takes its continuation bytes
        // along; a stray byte stands for itself.
        size_t len = 1;
        if (b >= 0xC2 && b <= 0xDF)
            len = 2;
        else if (b >= 0xE0 && b <= 0xEF)
            len = 3;
        else if (b >= 0xF0 && b <= 0xF4)
            len = 4;
        size_t used = 1;
        while (used < len && i + used < n && (static_cast<unsigned char>(utf8[i + used]) & 0xC0) == 0x80) ++used;
        out += '?';
        i += used;
    }
    return out;
}

std::string psdLayerName(const std::string& name) {
    std::string ascii = asciiText(name);
    if (ascii.size() > 255) ascii.resize(255);
    return ascii;
}

size_t layerRecordSize(const LayerElement& entry) {
    const size_t n = psdLayerName(entry.name).size();
    const size_t divider = entry.type == LayerTypeGroupStart ? 16 : entry.type == LayerTypeGroupEnd ? 24 : 0;
    return 66 + 1 + n + namePadding(n) + unicodeNameBlockSize(entry.name) + divider;
}

std::string buildXmpPacket(const std::string& xmpTemplate, const std::string& title, int width, int height,
                           const std::tm& localTime) {
    char date[64];
    std::snprintf(date, sizeof date, "%04d-%02d-%02dT%02d:%02d:%02d", localTime.tm_year + 1900, localTime.tm_mon + 1,
                  localTime.tm_mday, localTime.tm_hour, localTime.tm_min, localTime.tm_sec);
    std::string text = asciiText(xmpTemplate);
    replaceAll(text, "XMP_CREATOR", kCreatorTool);
    replaceAll(text, "XMP_DATE", date);
    replaceAll(text, "XMP_TITLE", xmlEscaped(asciiText(title)));
    replaceAll(text, "XMP_WIDTH", std::to_string(width));
    replaceAll(text, "XMP_HEIGHT", std::to_string(height));
    if (text.size() % 2 != 0) text += ' ';
    return text;
}

std::vector<uint8_t> encodeMergedImage(const uint8_t* rgba, uint64_t width, uint64_t height) {
    const EncodedChannels encoded = encodeChannels(rgba, width, height, matteOverWhiteInto);
    size_t total = 0;
    for (int c = 0; c < 4; ++c) total += 2 * height + encoded.rowBytes[c];
    std::vector<uint8_t> out;
    out.reserve(total);
    // Row counts of all four channels first, then the rows, channel by channel.
    for (int c = 0; c < 4; ++c) out.insert(out.end(), encoded.counts[c], encoded.counts[c] + 2 * height);
    for (int c = 0; c < 4; ++c) out.insert(out.end(), encoded.rows[c], encoded.rows[c] + encoded.rowBytes[c]);
    return out;
}

namespace {

// What writePSD and writeEncodedPSD share; `writeMerged` writes the encoded
// merged image once every check has passed and the layers are written.
WriteResult writeDocument(const std::string& path, Size size, size_t mergedBytes,
                          const std::function<bool(AtomicFile&)>& writeMerged, const std::vector<LayerPtr>& layers,
                          const std::string& xmpTemplate, const StatusFn& status, OnExisting onExisting) {
    auto refuse = [&path](const std::string& reason) {
        return WriteResult{false, "cannot write " + path + ": " + reason, {}};
    };

    if (!(size.width >= 1 && size.height >= 1)) return refuse("the canvas is empty");
    if (size.width >= kMaxPSDDimension + 1 || size.height >= kMaxPSDDimension + 1)
        return refuse("the canvas is " + std::to_string(static_cast<int64_t>(size.width)) + "x" +
                      std::to_string(static_cast<int64_t>(size.height)) + " pixels; a PSD document is at most " +
                      std::to_string(kMaxPSDDimension) + " pixels wide and high");
    const auto W = static_cast<uint64_t>(size.width);
    const auto H = static_cast<uint64_t>(size.height);
    if (mergedBytes < W * H * 4)
        return refuse("the composite holds " + std::to_string(mergedBytes) + " bytes, a " + std::to_string(W) + "x" +
                      std::to_string(H) + " canvas needs " + std::to_string(W * H * 4));
    if (static_cast<int64_t>(layers.size()) > kMaxLayerCount)
        return refuse(std::to_string(layers.size()) + " layers; a PSD document holds at most " +
                      std::to_string(kMaxLayerCount));

    uint64_t T = 0;
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        if (!*it) return refuse("an entry is missing");
        const LayerElement& e = **it;
        if (auto problem = entryProblem(e); !problem.empty()) return refuse(problem);
        T += layerRecordSize(e) + e.imageData.size();
    }
    if (T + 10 > std::numeric_limits<uint32_t>::max())
        return refuse("the layers need more than 4 GB, more than a PSD document holds");

    // Header, resources and every layer record, gathered to be written at once.
    std::vector<uint8_t> head;
    appendBytes(head, "8BPS");
    appendValue(head, 1, 2);  // version
    head.insert(head.end(), 6, 0);
    appendValue(head, 4, 2);  // channels
    appendValue(head, static_cast<int64_t>(H), 4);
    appendValue(head, static_cast<int64_t>(W), 4);
    appendValue(head, 8, 2);  // bits per channel
    appendValue(head, 3, 2);  // RGB
    appendValue(head, 0, 4);  // colour mode data

    const std::string xmp =
        buildXmpPacket(xmpTemplate, lastPathComponent(path), static_cast<int>(W), static_cast<int>(H), localNow());
    appendValue(head, static_cast<int64_t>(xmp.size() + 12), 4);
    appendBytes(head, "8BIM");
    appendValue(head, 1060, 2);  // XMP metadata
    appendValue(head, 0, 2);     // empty name and its pad byte
    appendValue(head, static_cast<int64_t>(xmp.size()), 4);
    appendBytes(head, xmp);

    appendValue(head, static_cast<int64_t>(T + 10), 4);
    appendValue(head, static_cast<int64_t>(T + 2), 4);
    // Negative: the first alpha channel is the merged result's transparency.
    appendValue(head, -static_cast<int64_t>(layers.size()), 2);
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) appendLayerRecord(head, **it, *recordBounds(**it));

    return writeFileAtomically(
        path,
        [&](AtomicFile& file) {
            if (!file.write(head.data(), head.size())) return false;
            for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
                const LayerElement& e = **it;
                if (status) status("Writing: " + e.name);
                if (!file.write(e.imageData.data(), e.imageData.size())) return false;
            }
            static const uint8_t maskAndCode[6] = {0, 0, 0, 0, 0, 1};  // global mask length 0, PackBits
            if (!file.write(maskAndCode, sizeof maskAndCode)) return false;

            if (status) status("Writing composite...");
            return writeMerged(file);
        },
        onExisting);
}

}  // namespace

WriteResult writePSD(const std::string& path, Size size, const std::vector<uint8_t>& merged,
                     const std::vector<LayerPtr>& layers, const std::string& xmpTemplate, const StatusFn& status,
                     OnExisting onExisting) {
    return writeDocument(
        path, size, merged.size(),
        [&](AtomicFile& file) {
            const std::vector<uint8_t> composite =
                encodeMergedImage(merged.data(), static_cast<uint64_t>(size.width), static_cast<uint64_t>(size.height));
            return file.write(composite.data(), composite.size());
        },
        layers, xmpTemplate, status, onExisting);
}

WriteResult writeEncodedPSD(const std::string& path, Size size, const std::vector<uint8_t>& encodedMerged,
                            const std::vector<LayerPtr>& layers, const std::string& xmpTemplate, const StatusFn& status,
                            OnExisting onExisting) {
    // An encoded merged image exists only for a canvas that was there to encode.
    const auto side = [](double v) { return v >= 1 && v < kMaxPSDDimension + 1 ? static_cast<uint64_t>(v) : 0; };
    const uint64_t pixels = side(size.width) * side(size.height);
    return writeDocument(
        path, size, encodedMerged.empty() ? 0 : pixels * 4,
        [&](AtomicFile& file) { return file.write(encodedMerged.data(), encodedMerged.size()); }, layers, xmpTemplate,
        status, onExisting);
}

}  // namespace pv
