// The picture in the README: it is what the viewer draws now.
#include "Support/ExportFolders.h"
#include "Support/Picture.h"
#include "Support/Python.h"
#include "Tools/ToolTest.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace moxel::test {
namespace {

constexpr Region model{0, 0, 480, 480};
constexpr Region panel{480, 0, 720, 480};

/// Text, bars and lamps are placed in whole pixels. Places and colours of the model are rounded from floating
/// point, which another processor or another SDL may do otherwise: a colour comes out one lighter or darker,
/// and an edge between two pixels on the other one.
constexpr int shades = 2;
/// A movement by the smallest unit of the X axis gives 250 pixels other colours. Rounding, which is a
/// thousand times smaller, has to stay well below that.
constexpr int strays = 150;

/// Turns a PNG of 24 bits, argv[1], into a BMP, argv[2].
constexpr const char *bitmapOfPNG = R"(
import struct, sys, zlib
data, place, packed = open(sys.argv[1], 'rb').read(), 8, b''
while place < len(data):
    size, kind = struct.unpack_from('>I4s', data, place)
    content = data[place + 8:place + 8 + size]
    if kind == b'IHDR':
        width, height, depth, colours, _, _, interlaced = struct.unpack('>IIBBBBB', content)
        assert (depth, colours, interlaced) == (8, 2, 0), 'not 24 bits'
    elif kind == b'IDAT':
        packed += content
    place += size + 12
raw, stride = zlib.decompress(packed), 3 * width
above, rows = bytes(stride), []
for start in range(0, len(raw), stride + 1):
    kind, row = raw[start], bytearray(raw[start + 1:start + 1 + stride])
    for i in range(stride):
        left, up, corner = (row[i - 3], above[i], above[i - 3]) if i >= 3 else (0, above[i], 0)
        near = left + up - corner
        paeth = min((left, up, corner), key=lambda value: abs(near - value))
        row[i] = (row[i] + (0, left, up, (left + up) // 2, paeth)[kind]) & 255
    rows.append(bytes(byte for i in range(0, stride, 3) for byte in (row[i + 2], row[i + 1], row[i])))
    above = bytes(row)
assert len(rows) == height
padding = bytes(-stride % 4)
pixels = b''.join(row + padding for row in reversed(rows))
open(sys.argv[2], 'wb').write(struct.pack('<2sIIIIiiHHIIiiII', b'BM', 54 + len(pixels), 0, 54, 40, width, height,
                                          1, 24, 0, len(pixels), 0, 0, 0, 0) + pixels)
)";

class ViewerPicture : public ToolTest {
  protected:
    static constexpr const char *program = MOXEL_EXAMPLES "/viewer/viewer";

    void SetUp() override {
        if (::access(program, X_OK) != 0)
            GTEST_SKIP() << "the viewer is not built: libsdl2-dev is not installed";
        if (!hasPython())
            GTEST_SKIP() << "python3 is not installed";
        folders.write(folders.applicationSupport() + "/Moxel/MxlWare/MxlCommands.plist",
                      "<plist><dict/></plist>");
        startDaemon();
    }

    /// The last picture of a viewer that gets a trace once it has handed over its commands.
    [[nodiscard]] Picture drawn(const std::string &trace, const std::string &name) const {
        ChildProcess::Environment variables = environment();
        variables["SDL_VIDEODRIVER"] = "dummy";
        ChildProcess viewer({program, "--screenshot", folder.path(name)}, variables);
        const auto isReady = [](const daemon::Observation &seen) {
            return seen.clients.size() == 1 && seen.clients[0].exports.activeSet == "view" &&
                   seen.clients[0].exports.actions.size() == 3;
        };
        EXPECT_TRUE(moxeld->waitUntil(isReady, patience));
        happen(trace);
        const Finished ended = finish(viewer);
        EXPECT_EQ(ended.exitCode, 0) << ended.errors;
        EXPECT_TRUE(awaitNoClients());
        return Picture(folder.path(name));
    }
    [[nodiscard]] Picture inTheReadme() const {
        const std::string bitmap = folder.path("readme.bmp");
        EXPECT_EQ(runPython(bitmapOfPNG, {}, {MOXEL_DOCUMENTATION "/viewer.png", bitmap}).exitCode, 0);
        return Picture(bitmap);
    }
    [[nodiscard]] static std::string traceOfThePicture() {
        std::ifstream file(MOXEL_DOCUMENTATION "/viewer.trace");
        return {std::istreambuf_iterator<char>(file), {}};
    }
    [[nodiscard]] static int modelDifference(const Picture &first, const Picture &second) {
        const auto isOther = [&](int x, int y) {
            const Pixel one = first.at(x, y);
            const Pixel other = second.at(x, y);
            return std::abs(one.red - other.red) > shades || std::abs(one.green - other.green) > shades ||
                   std::abs(one.blue - other.blue) > shades;
        };
        return blob(model, isOther).size;
    }

    ExportFolders folders;
};

TEST_F(ViewerPicture, OfTheReadmeIsWhatTheViewerDraws) {
    const Picture shown = inTheReadme();
    const Picture now = drawn(traceOfThePicture(), "now.bmp");
    ASSERT_EQ(shown.width(), now.width());
    ASSERT_EQ(shown.height(), now.height());
    EXPECT_EQ(difference(shown, now, panel).size, 0);
    EXPECT_LE(modelDifference(shown, now), strays);
}

TEST_F(ViewerPicture, ToleranceNoticesTheSmallestMovement) {
    const std::string trace = traceOfThePicture();
    const std::string movement = "motion 150 ";
    const size_t place = trace.find(movement);
    ASSERT_NE(place, std::string::npos);
    const std::string moved = std::string(trace).replace(place, movement.size(), "motion 151 ");
    EXPECT_GT(modelDifference(drawn(trace, "here.bmp"), drawn(moved, "there.bmp")), strays);
}

} // namespace
} // namespace moxel::test
