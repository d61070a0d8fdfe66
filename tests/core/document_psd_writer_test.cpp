// The PSD file: its bytes, its layer records, the merged image, the XMP
// packet, names, file names, and what happens when it cannot be written.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <regex>
#include <set>

#include "document/file_naming.h"
#include "document/layer_preparation.h"
#include "document/merged_image.h"
#include "document/output_format.h"
#include "document/psd_writer.h"
#include "document_test_support.h"

using namespace pv;
using Bytes = std::vector<uint8_t>;
using pvtest::PsdFile;
using pvtest::PsdRecord;

namespace {

const std::string kTemplate =
    "<x:xmpmeta><CreatorTool>XMP_CREATOR</CreatorTool><CreateDate>XMP_DATE</CreateDate>"
    "<ModifyDate>XMP_DATE</ModifyDate><title>XMP_TITLE</title><w>XMP_WIDTH</w><h>XMP_HEIGHT</h></x:xmpmeta>";

LayerPtr prepared(LayerPtr layer) {
    prepareLayer(*layer);
    return layer;
}

struct Written {
    PsdFile psd;
    Bytes file;
    std::vector<std::string> statuses;
};

// Writes into a fresh folder and reads the file back.
Written write(Size size, Bytes merged, const std::vector<LayerPtr>& layers,
              const std::string& xmpTemplate = kTemplate) {
    pvtest::ScratchDir dir;
    Written w;
    const WriteResult r = writePSD(dir / "x.psd", size, merged, layers, xmpTemplate,
                                   [&w](const std::string& s) { w.statuses.push_back(s); });
    EXPECT_TRUE(r.ok) << r.error;
    if (r.ok) {
        w.file = pvtest::readFile(dir / "x.psd");
        w.psd = pvtest::parsePsd(w.file);
    }
    return w;
}

std::tm at(int year, int month, int day, int hour, int min, int sec) {
    std::tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = month - 1;
    t.tm_mday = day;
    t.tm_hour = hour;
    t.tm_min = min;
    t.tm_sec = sec;
    return t;
}

Bytes bytesOf(const std::string& s) { return {s.begin(), s.end()}; }

}  // namespace

TEST(PSDWriter, WorkedExampleOfOneOpaquePixel) {
    auto w = write({1, 1}, {10, 20, 30, 255}, {prepared(pvtest::pixelLayer("A", 0, 0, 1, 1, {10, 20, 30, 255}))});
    const Bytes header{'8', 'B', 'P', 'S', 0, 1, 0, 0, 0, 0, 0, 0, 0, 4, 0,
                       0,   0,   1,   0,   0, 0, 1, 0, 8, 0, 3, 0, 0, 0, 0};
    ASSERT_GT(w.file.size(), header.size());
    EXPECT_EQ(Bytes(w.file.begin(), w.file.begin() + 30), header);
    EXPECT_EQ(w.psd.resourceId, 1060);
    EXPECT_TRUE(std::regex_search(w.psd.xmp, std::regex("<CreatorTool>Veltrano Plenavue</CreatorTool><CreateDate>"
                                                        "\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d</CreateDate>")));
    EXPECT_NE(w.psd.xmp.find("<title>x.psd</title><w>1</w><h>1</h>"), std::string::npos);

    // Everything after the resources, byte for byte.
    const Bytes rest{0, 0, 0, 0x7C, 0, 0, 0, 0x74, 0xFF, 0xFF,
                     // record
                     0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 4, 0, 0, 0, 0, 0, 6, 0, 1, 0, 0, 0, 6, 0, 2, 0,
                     0, 0, 6, 0xFF, 0xFF, 0, 0, 0, 6, '8', 'B', 'I', 'M', 'n', 'o', 'r', 'm', 0xFF, 0, 0, 0, 0, 0, 0,
                     0x20, 0, 0, 0, 0, 0, 0, 0, 0, 1, 'A', 0, 0, '8', 'B', 'I', 'M', 'l', 'u', 'n', 'i', 0, 0, 0, 8, 0,
                     0, 0, 1, 0, 'A', 0, 0,
                     // channel data
                     0, 1, 0, 2, 0, 0x0A, 0, 1, 0, 2, 0, 0x14, 0, 1, 0, 2, 0, 0x1E, 0, 1, 0, 2, 0, 0xFF,
                     // global layer mask info
                     0, 0, 0, 0,
                     // merged image
                     0, 1, 0, 2, 0, 2, 0, 2, 0, 2, 0, 0x0A, 0, 0x14, 0, 0x1E, 0, 0xFF};
    EXPECT_EQ(Bytes(w.file.begin() + static_cast<ptrdiff_t>(w.psd.layerSectionStart), w.file.end()), rest);
    EXPECT_EQ(w.statuses, (std::vector<std::string>{"Writing: A", "Writing composite..."}));
}

TEST(PSDWriter, RecordEdgesAreTheRoundedCornerAndTheSizeOfTheEncodedPixels) {
    struct Case {
        CanvasRect at;
        int w, h;                          // pixels held
        int32_t top, left, bottom, right;  // as recorded
    };
    const Case cases[] = {
        {{20, 30, 10, 5}, 10, 5, 30, 20, 35, 30},
        {{10.5, 2.5, 7, 5}, 7, 5, 3, 11, 8, 18},
        {{10.4999, 2.5001, 7.9, 5.2}, 7, 5, 3, 10, 8, 17},  // fractional sizes: the pixels held count
        {{-0.5, -1.5, 3, 2}, 3, 2, -2, -1, 0, 2},           // halves away from zero
        {{-2.25, 0.75, 1, 1}, 1, 1, 1, -2, 2, -1},
        // A shadowed window at scale 1.5: a width of 182 pixels starting at 14.5 ends at 197, not 196.
        {{14.5, 6.0, 182, 138}, 182, 138, 6, 15, 144, 197},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(rectToString(c.at));
        auto layer = pvtest::pixelLayer("L", 0, 0, c.w, c.h, pvtest::solid(c.w, c.h, 9, 8, 7, 255));
        layer->location = c.at;
        // The merged image of a saved selection draws the layer at the same edges.
        const Image merged = composeLayers({layer}, 240, 160);
        if (c.left > 0 && c.top >= 0) {
            EXPECT_EQ(merged.row(c.top)[c.left * 4 + 3], 255);
            EXPECT_EQ(merged.row(c.top)[(c.left - 1) * 4 + 3], 0);
        }
        const auto w = write({240, 160}, Bytes(240 * 160 * 4, 0), {prepared(layer)});
        ASSERT_EQ(w.psd.records.size(), 1u);
        const PsdRecord& r = w.psd.records[0];
        EXPECT_EQ(std::tie(r.top, r.left, r.bottom, r.right), std::tie(c.top, c.left, c.bottom, c.right));
    }
}

TEST(PSDWriter, GroupIsWrittenAsDividerLayersBottomUpThenFolder) {
    // Top of the stack first: end(G), top, bottom, start(G).
    const auto w = write({3, 3}, Bytes(36, 0),
                         {makeGroupMarker(LayerTypeGroupEnd, "Editor"),
                          prepared(pvtest::pixelLayer("top", 0, 0, 2, 2, pvtest::solid(2, 2, 255, 0, 0, 255))),
                          prepared(pvtest::pixelLayer("bottom", 1, 1, 2, 2, pvtest::solid(2, 2, 0, 0, 255, 255))),
                          makeGroupMarker(LayerTypeGroupStart, "Editor")});
    const PsdFile& p = w.psd;
    EXPECT_EQ(p.layerCount, -4);
    ASSERT_EQ(p.records.size(), 4u);
    const PsdRecord &divider = p.records[0], &folder = p.records[3];
    EXPECT_EQ(std::tie(divider.name, divider.sectionType, divider.flags, divider.blendKey),
              std::make_tuple(std::string("Editor"), 3, uint8_t(0x18), std::string("norm")));
    EXPECT_EQ(std::tie(divider.top, divider.left, divider.bottom, divider.right), std::make_tuple(0, 0, 0, 0));
    EXPECT_EQ(p.channelData[0], Bytes(8, 0));
    EXPECT_EQ(std::tie(p.records[1].name, p.records[2].name), std::make_tuple("bottom", "top"));
    // The group's own record passes its layers through, as its section does.
    EXPECT_EQ(std::tie(folder.name, folder.sectionType, folder.sectionBlend, folder.blendKey, folder.flags),
              std::make_tuple(std::string("Editor"), 2, std::string("pass"), std::string("pass"), uint8_t(0x18)));
    EXPECT_EQ(w.statuses, (std::vector<std::string>{"Writing: Editor", "Writing: bottom", "Writing: top",
                                                    "Writing: Editor", "Writing composite..."}));
}

TEST(PSDWriter, MergedImageIsMattedOverWhiteAndStoredChannelByChannel) {
    struct Case {
        const char* what;
        Bytes premultiplied, stored;
    };
    // Stored colour: the premultiplied colour plus the white not covered.
    const Case cases[] = {
        {"opaque: as it is", {10, 200, 255, 255}, {10, 200, 255, 255}},
        {"transparent: white", {0, 0, 0, 0}, {255, 255, 255, 0}},
        {"half-covered blue", {0, 0, 128, 128}, {127, 127, 255, 128}},
        {"a dark shadow's edge", {1, 1, 1, 20}, {236, 236, 236, 20}},
        {"colour above alpha stays within 255", {200, 10, 0, 100}, {255, 165, 155, 100}},
    };
    Bytes merged;
    for (const Case& c : cases) merged.insert(merged.end(), c.premultiplied.begin(), c.premultiplied.end());
    const Bytes stored = write({std::size(cases), 1}, merged, {}).psd.merged;
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(cases[i].what);
        EXPECT_EQ(Bytes(stored.begin() + 4 * i, stored.begin() + 4 * i + 4), cases[i].stored);
    }
    // A fractional canvas size is truncated; an opaque picture of many colours
    // comes back as it was; no layers still make a (short) layer section.
    Bytes noise;
    for (int i = 0; i < 21; ++i) noise.insert(noise.end(), {uint8_t(i * 11), uint8_t(i), uint8_t(255 - i), 255});
    const PsdFile p = write({7.9, 3.5}, noise, {}).psd;
    EXPECT_EQ(std::tie(p.width, p.height, p.layerCount, p.layerInfoLength), std::make_tuple(7u, 3u, int16_t(0), 2u));
    EXPECT_EQ(p.merged, noise);
}

// Each record keeps an ASCII Pascal name (255 bytes at most, `?` for each
// character outside ASCII) and the whole name as UTF-16 in its Unicode block,
// group markers too.
TEST(PSDNames, EveryRecordCarriesAnASCIINameAndTheWholeNameInItsUnicodeBlock) {
    struct Case {
        std::string name, pascal;
        std::u16string units;
    };
    std::string e300;
    for (int i = 0; i < 300; ++i) e300 += "\xC3\xA9";
    const std::vector<Case> cases{
        {"Untitled", "Untitled", u"Untitled"},
        {"\xC3\x9Cn\xC3\xAF \xE2\x80\x94 \xE6\x97\xA5\xE6\x9C\xAC \xE2\x9C\x93", "?n? ? ?? ?",
         u"\u00DCn\u00EF \u2014 \u65E5\u672C \u2713"},
        {"smile \xF0\x9F\x98\x80!", "smile ?!", u"smile \xD83D\xDE00!"},  // a surrogate pair, two units
        {"", "", u""},
        {"ab", "ab", u"ab"},
        {"abcd", "abcd", u"abcd"},
        {"bad \xFF\xFE", "bad ??", u"bad \uFFFD\uFFFD"},
        {e300, std::string(255, '?'), std::u16string(300, u'\u00E9')},
        {std::string(300, 'x'), std::string(255, 'x'), std::u16string(300, u'x')},
        {std::string(254, 'x') + "\xC3\xA9\xC3\xA9", std::string(254, 'x') + "?",
         std::u16string(254, u'x') + u"\u00E9\u00E9"},
    };
    std::vector<LayerPtr> layers{makeGroupMarker(LayerTypeGroupEnd, cases[1].name)};
    for (const Case& c : cases) layers.push_back(prepared(pvtest::pixelLayer(c.name, 0, 0, 1, 1, {0, 0, 0, 255})));
    layers.push_back(makeGroupMarker(LayerTypeGroupStart, cases[1].name));

    const auto w = write({1, 1}, {0, 0, 0, 255}, layers);
    ASSERT_EQ(w.psd.records.size(), layers.size());
    for (size_t i = 0; i < layers.size(); ++i) {
        const PsdRecord& r = w.psd.records[i];
        const Case& c = i == 0 || i + 1 == layers.size() ? cases[1] : cases[cases.size() - i];
        SCOPED_TRACE(c.pascal);
        EXPECT_EQ(r.name, c.pascal);
        EXPECT_EQ(r.unicodeName, c.units);
        EXPECT_EQ(r.size, layerRecordSize(*layers[layers.size() - 1 - i]));  // the file holds the bottom first
    }
    // The status line keeps the name as given.
    EXPECT_EQ(w.statuses.at(1), "Writing: " + cases.back().name);
}

TEST(XmpPacket, FillsEveryPlaceholderAndPadsToAnEvenLength) {
    const std::tm t = at(2026, 11, 16, 7, 5, 9);
    EXPECT_EQ(buildXmpPacket("XMP_CREATOR|XMP_DATE|XMP_DATE|XMP_TITLE|XMP_WIDTH|XMP_HEIGHT", "16-11-2026-07-05-09.psd",
                             2880, 1800, t),
              "Veltrano Plenavue|2026-11-16T07:05:09|2026-11-16T07:05:09|16-11-2026-07-05-09.psd|2880|1800 ");
    // Titles stay ASCII and valid inside XML.
    EXPECT_EQ(buildXmpPacket("XMP_TITLE", "R&D <\xC3\xA9>.psd", 1, 1, t), "R&amp;D &lt;?&gt;.psd ");
    // In the file, the resource holds the padded packet.
    EXPECT_EQ(write({1, 1}, {0, 0, 0, 0}, {}, "<a>XMP_TITLE</ab>").psd.xmp, "<a>x.psd</ab> ");
    EXPECT_EQ(write({1, 1}, {0, 0, 0, 0}, {}, "<ab>XMP_TITLE</ab>").psd.xmp, "<ab>x.psd</ab>");
}

TEST(FileNaming, DayFirstNamesNumberedWhenTakenAndFormatsThatAgree) {
    EXPECT_EQ(buildFileName(OutputFormat::GroupedPSD, at(2026, 11, 16, 17, 5, 9)), "16-11-2026-17-05-09.psd");
    EXPECT_EQ(buildFileName(OutputFormat::PNG, at(2027, 2, 1, 9, 3, 7)), "01-02-2027-09-03-07.png");
    for (const auto& [path, second] : std::vector<std::pair<std::string, std::string>>{
             {"/out/16-11-2026-17-05-09.psd", "/out/16-11-2026-17-05-09-2.psd"},
             {"/out.d/shot", "/out.d/shot-2"},
             {"/out/.hidden", "/out/.hidden-2"},
             {"/out/a.b.png", "/out/a.b-2.png"}}) {
        EXPECT_EQ(numberedPath(path, 1), path);
        EXPECT_EQ(numberedPath(path, 2), second);
    }
    const std::set<std::string> taken{"/o/x.psd", "/o/x-2.psd", "/o/x-3.psd"};
    const auto isTaken = [&](const std::string& p) { return taken.count(p) > 0; };
    EXPECT_EQ(firstFreePath("/o/x.psd", isTaken), "/o/x-4.psd");
    EXPECT_EQ(firstFreePath("/o/y.psd", isTaken), "/o/y.psd");

    for (int64_t v : {0, 1, 2}) {
        const auto f = outputFormatFromValue(v);
        ASSERT_TRUE(f);
        EXPECT_EQ(outputFormatFromName(outputFormatName(*f)), f);
        EXPECT_EQ(fileKindOfName("x." + std::string(fileExtension(*f))),
                  isLayered(*f) ? FileKind::LayeredDocument : FileKind::FlatPicture);
    }
    EXPECT_FALSE(outputFormatFromValue(3));
    EXPECT_EQ(fileKindOfName("/a/B.PNG"), FileKind::FlatPicture);
    EXPECT_FALSE(fileKindOfName("/a.psd/b"));
}

TEST(FileNaming, ANumberedWriteNeverReplacesAFileAndAChosenOneDoes) {
    pvtest::ScratchDir dir;
    const std::string path = dir / "shot.psd";
    pvtest::writeText(path, "earlier");
    const auto write = [&](const std::string& text, OnExisting onExisting) {
        return writeFileAtomically(
            path, [&](AtomicFile& f) { return f.write(text.data(), text.size()); }, onExisting);
    };
    EXPECT_EQ(write("second", OnExisting::Number).path, dir / "shot-2.psd");
    EXPECT_EQ(write("third", OnExisting::Number).path, dir / "shot-3.psd");
    EXPECT_EQ(pvtest::readFile(path), bytesOf("earlier"));
    EXPECT_EQ(pvtest::readFile(dir / "shot-2.psd"), bytesOf("second"));
    EXPECT_EQ(write("chosen", OnExisting::Replace).path, path);
    EXPECT_EQ(pvtest::readFile(path), bytesOf("chosen"));
}

TEST(PSDWriterRefusals, BadInputIsRefusedBeforeAnyFileIsMade) {
    struct Case {
        const char* what;
        Size size;
        std::function<void(LayerElement&)> change;  // applied to a prepared 4x3 layer
        const char* reason;
    };
    const auto none = [](LayerElement&) {};
    const Case cases[] = {
        {"a canvas wider than 30000", {30001, 8}, none, "30000"},
        {"a canvas higher than 30000", {8, 40000}, none, "30000"},
        {"an empty canvas", {0, 8}, none, "empty"},
        {"a short composite", {9, 8}, none, "needs 288"},
        {"an unprepared layer", {8, 8}, [](LayerElement& l) { l.ready = false; }, "\"Notes\" is not prepared"},
        {"one pixel wider",
         {8, 8},
         [](LayerElement& l) { l.location.width = 5; },
         "5x3 rectangle: channel 0 has a row of 4 pixels"},
        {"one row higher",
         {8, 8},
         [](LayerElement& l) { l.location.height = 4; },
         "4x4 rectangle: channel 0 has rows running past its end"},
        {"one row lower",
         {8, 8},
         [](LayerElement& l) { l.location.height = 2; },
         "4x2 rectangle: channel 0 has a row of"},
        {"a row count too large", {8, 8}, [](LayerElement& l) { l.imageData[3] += 1; }, "layer \"Notes\""},
        {"a broken packet", {8, 8}, [](LayerElement& l) { l.imageData[8] = 5; }, "channel 0 has a row of"},
        {"an unknown compression", {8, 8}, [](LayerElement& l) { l.imageData[1] = 2; }, "unknown compression 2"},
        {"a raw block of the wrong size",
         {8, 8},
         [](LayerElement& l) {
             l.imageData.assign(4 * 13, 0);
             l.channelSizes = {13, 13, 13, 13};
         },
         "holds 11 raw bytes"},
        {"a rectangle beyond the record", {8, 8}, [](LayerElement& l) { l.location.x = 3e9; }, "cannot hold"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        pvtest::ScratchDir dir;
        auto layer = prepared(pvtest::pixelLayer("Notes", 1.5, 0, 4, 3, pvtest::solid(4, 3, 1, 2, 3, 255)));
        c.change(*layer);
        Bytes merged(8 * 8 * 4, 7);
        const WriteResult r = writePSD(dir / "x.psd", c.size, merged, {layer}, kTemplate, nullptr);
        EXPECT_FALSE(r.ok);
        EXPECT_NE(r.error.find(dir / "x.psd"), std::string::npos) << r.error;
        EXPECT_NE(r.error.find(c.reason), std::string::npos) << r.error;
        EXPECT_TRUE(dir.entries().empty());
        EXPECT_EQ(merged, Bytes(8 * 8 * 4, 7));
    }
    // Exactly 30000 is allowed.
    EXPECT_EQ(write({30000, 1}, pvtest::solid(30000, 1, 0, 0, 0, 255), {}).psd.width, 30000u);
}

// Paths that cannot be written, and a write failing part way as on a full disk
// (a file size limit), keep what was there and leave no temporary.
TEST(PSDWriterFailures, FailuresNameThePathAndLeaveWhatWasThere) {
    pvtest::ScratchDir dir;
    std::filesystem::create_directory(dir.path / "taken.psd");
    for (const auto& [path, reason] :
         std::vector<std::pair<std::string, std::string>>{{dir / "missing/x.psd", "No such file or directory"},
                                                          {"/dev/null/x.psd", "Not a directory"},
                                                          {dir / "taken.psd", "Is a directory"}}) {
        Bytes merged{1, 2, 3, 255};
        const WriteResult r = writePSD(path, {1, 1}, merged, {}, kTemplate, nullptr);
        EXPECT_FALSE(r.ok);
        EXPECT_EQ(r.error, "cannot write " + path + ": " + reason);
    }
    const std::string path = dir / "x.psd";
    pvtest::writeText(path, "earlier");
    const int code = pvtest::inChildProcess([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = 1000;
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 3;
        Bytes noise(64 * 64 * 4);
        for (size_t i = 0; i < noise.size(); ++i) noise[i] = i % 4 == 3 ? 255 : static_cast<uint8_t>(i * 7919 % 251);
        Bytes merged = pvtest::solid(64, 64, 0, 0, 0, 255);
        WriteResult r = writePSD(path, {64, 64}, merged, {prepared(pvtest::pixelLayer("noise", 0, 0, 64, 64, noise))},
                                 kTemplate, nullptr);
        if (r.ok) return 1;
        return r.error == "cannot write " + path + ": File too large" ? 0 : 2;
    });
    EXPECT_EQ(code, 0);
    EXPECT_EQ(dir.entries(), (std::vector<std::string>{"taken.psd", "x.psd"}));
    EXPECT_EQ(pvtest::readFile(path), bytesOf("earlier"));
}

TEST(AtomicFileTest, TheEarlierFileIsReplacedOnlyByAWholeNewOne) {
    pvtest::ScratchDir dir;
    const std::string path = dir / "out.bin";
    pvtest::writeText(path, "earlier");
    std::string temporary;
    WriteResult r = writeFileAtomically(path, [&](AtomicFile& f) -> bool {
        temporary = f.temporaryPath();
        f.write("partial", 7);
        throw std::runtime_error("layer \"x\" is too large");
    });
    EXPECT_EQ(r.error, "cannot write " + path + ": layer \"x\" is too large");
    EXPECT_EQ(temporary.rfind(dir / ".out.bin.", 0), 0u) << temporary;
    r = writeFileAtomically(path, [](AtomicFile& f) {
        f.fail("the composite could not be encoded");
        return f.write("more", 4);
    });
    EXPECT_EQ(r.error, "cannot write " + path + ": the composite could not be encoded");
    EXPECT_EQ(pvtest::readFile(path), bytesOf("earlier"));

    const mode_t old = umask(022);
    r = writeFileAtomically(path, [&](AtomicFile& f) {
        // Until the commit, the earlier file is whole and the new bytes are elsewhere.
        return f.write("new", 3) && pvtest::readFile(path) == bytesOf("earlier") && f.temporaryPath() != path;
    });
    umask(old);
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(pvtest::readFile(path), bytesOf("new"));
    struct stat st {};
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0644u);
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"out.bin"});
    // A target name at the length limit still gets a temporary.
    r = writeFileAtomically(dir / (std::string(251, 'n') + ".psd"), [](AtomicFile& f) { return f.write("x", 1); });
    EXPECT_TRUE(r.ok) << r.error;
}

// Temporaries of processes that are gone are swept before each write, and a
// signal handler finds every temporary still open; nothing else is touched.
TEST(AtomicFileTest, TemporariesAreRemovedOnlyWhenNoProcessWillFinishThem) {
    const std::string name = temporaryName("16-11-2026-17-05-09.psd", 4711);
    EXPECT_TRUE(std::regex_match(name, std::regex(R"(\.16-11-2026-17-05-09\.psd\.plenavue-4711-[a-z0-9]{8}\.tmp)")))
        << name;
    EXPECT_EQ(temporaryOwner(name), 4711);
    EXPECT_LE(temporaryName(std::string(255, 'n'), 4194304).size(), 255u);
    for (const char* other : {"x.psd", "x.psd.plenavue-12-k3x9a0qz.tmp", ".x.psd.plenavue-12-k3x9a0q.tmp",
                              ".x.psd.plenavue-1a-k3x9a0qz.tmp", ".x.psd.plenavue-12-k3x9a0qz.tmp~"})
        EXPECT_EQ(temporaryOwner(other), 0) << other;

    pvtest::ScratchDir dir;
    const pid_t gone = fork();
    if (gone == 0) _exit(0);
    ASSERT_GT(gone, 0);
    waitpid(gone, nullptr, 0);
    const std::string stale = temporaryName("a.psd", gone);
    for (const std::string& n :
         {stale, temporaryName("b.psd", getpid()), temporaryName("c.psd", 1), std::string("a.psd")})
        pvtest::writeText(dir.path / n, "x");
    EXPECT_EQ(sweepStaleTemporaries(dir.path.string()), 1);
    EXPECT_EQ(dir.entries().size(), 3u);
    pvtest::writeText(dir.path / stale, "x");
    ASSERT_TRUE(writeFileAtomically(dir / "d.psd", [](AtomicFile& f) { return f.write("d", 1); }).ok);
    EXPECT_FALSE(std::filesystem::exists(dir.path / stale));

    AtomicFile unfinished, committed;
    ASSERT_TRUE(unfinished.open(dir / "one.psd") && committed.open(dir / "two.psd"));
    ASSERT_TRUE(committed.write("2", 1) && committed.commit());
    removeOpenTemporaries();
    EXPECT_EQ(dir.entries().size(), 5u);  // a.psd, b's and c's temporaries, d.psd, two.psd
    EXPECT_TRUE(std::filesystem::exists(dir.path / "two.psd"));
}
