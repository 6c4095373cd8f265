#pragma once

#include <cstdint>
#include <vector>

#include "platform/graphics/Image.h"

// Shrinks an image by a whole factor while it is decoded, a row at a time, averaging
// each factor x factor block. Decoders use it so that a large picture never has to be
// held at full size and the canvas only has a small last step left to scale.
namespace vexo::graphics {

class BoxReducer {
public:
    // Reduces a `sourceWidth` x `sourceHeight` image by `factor` (>= 1). The result is
    // ceil(source / factor) on each side; the blocks on the right and bottom edges
    // average the pixels they have.
    BoxReducer(int sourceWidth, int sourceHeight, int factor, Image::Alpha alpha);

    // The factor that keeps the result at least `targetWidth` x `targetHeight`; 1 when the
    // source is not at least twice the target in both directions or the target is empty.
    [[nodiscard]] static int factorFor(int sourceWidth, int sourceHeight, int targetWidth, int targetHeight);

    // Adds the next source row: `sourceWidth` premultiplied 0xAARRGGBB words. Requires
    // fewer than `sourceHeight` rows added so far.
    void addRow(const std::uint32_t* row);

    // Adds the next source row as `sourceWidth` opaque pixels of three bytes R, G, B; the
    // decoders hand over 24-bit rows this way without widening them first.
    void addRgbRow(const std::uint8_t* row);

    // The reduced image; requires every source row to have been added. Call once.
    [[nodiscard]] Image finish();

private:
    void finishRow();
    void flushBand();

    int m_sourceWidth;
    int m_sourceHeight;
    int m_factor;
    int m_rowsAdded = 0;
    int m_rowsInBand = 0;
    int m_outputRow = 0;
    std::vector<std::uint32_t> m_sums; // four channel sums per output column
    Image m_output;
};

} // namespace vexo::graphics
