#include "platform/graphics/BoxReducer.h"

#include <algorithm>
#include <cassert>

namespace vexo::graphics {

namespace {

int ceilDiv(int a, int b) {
    return (a + b - 1) / b;
}

} // namespace

BoxReducer::BoxReducer(int sourceWidth, int sourceHeight, int factor, Image::Alpha alpha)
    : m_sourceWidth(sourceWidth),
      m_sourceHeight(sourceHeight),
      m_factor(std::max(factor, 1)),
      m_sums(static_cast<std::size_t>(ceilDiv(sourceWidth, std::max(factor, 1))) * 4, 0),
      m_output(ceilDiv(sourceWidth, std::max(factor, 1)), ceilDiv(sourceHeight, std::max(factor, 1)), alpha) {}

int BoxReducer::factorFor(int sourceWidth, int sourceHeight, int targetWidth, int targetHeight) {
    if (targetWidth <= 0 || targetHeight <= 0)
        return 1;
    return std::max(1, std::min(sourceWidth / targetWidth, sourceHeight / targetHeight));
}

void BoxReducer::addRow(const std::uint32_t* row) {
    assert(m_rowsAdded < m_sourceHeight);
    std::uint32_t* sums = m_sums.data();
    int x = 0;
    // Whole blocks first; the inner loop is the hot path of a large decode.
    for (; x + m_factor <= m_sourceWidth; x += m_factor, sums += 4) {
        std::uint32_t a = 0, r = 0, g = 0, b = 0;
        for (int i = 0; i < m_factor; ++i) {
            std::uint32_t word = row[x + i];
            a += word >> 24;
            r += (word >> 16) & 0xFF;
            g += (word >> 8) & 0xFF;
            b += word & 0xFF;
        }
        sums[0] += a;
        sums[1] += r;
        sums[2] += g;
        sums[3] += b;
    }
    for (; x < m_sourceWidth; ++x) {
        std::uint32_t word = row[x];
        sums[0] += word >> 24;
        sums[1] += (word >> 16) & 0xFF;
        sums[2] += (word >> 8) & 0xFF;
        sums[3] += word & 0xFF;
    }
    finishRow();
}

void BoxReducer::addRgbRow(const std::uint8_t* row) {
    assert(m_rowsAdded < m_sourceHeight);
    std::uint32_t* sums = m_sums.data();
    int x = 0;
    for (; x < m_sourceWidth; x += m_factor, sums += 4) {
        int end = std::min(x + m_factor, m_sourceWidth);
        std::uint32_t r = 0, g = 0, b = 0;
        for (const std::uint8_t* p = row + static_cast<std::size_t>(x) * 3; p < row + static_cast<std::size_t>(end) * 3;
             p += 3) {
            r += p[0];
            g += p[1];
            b += p[2];
        }
        sums[0] += 255u * static_cast<std::uint32_t>(end - x);
        sums[1] += r;
        sums[2] += g;
        sums[3] += b;
    }
    finishRow();
}

void BoxReducer::finishRow() {
    ++m_rowsAdded;
    if (++m_rowsInBand == m_factor || m_rowsAdded == m_sourceHeight)
        flushBand();
}

void BoxReducer::flushBand() {
    std::uint32_t* out = m_output.row(m_outputRow);
    int columns = m_output.width();
    for (int column = 0; column < columns; ++column) {
        int blockWidth = std::min(m_factor, m_sourceWidth - column * m_factor);
        std::uint32_t count = static_cast<std::uint32_t>(blockWidth * m_rowsInBand);
        std::uint32_t* sums = &m_sums[static_cast<std::size_t>(column) * 4];
        auto average = [&](int channel) { return (sums[channel] + count / 2) / count; };
        out[column] = (average(0) << 24) | (average(1) << 16) | (average(2) << 8) | average(3);
    }
    std::fill(m_sums.begin(), m_sums.end(), 0);
    m_rowsInBand = 0;
    ++m_outputRow;
}

Image BoxReducer::finish() {
    assert(m_rowsAdded == m_sourceHeight);
    return std::move(m_output);
}

} // namespace vexo::graphics
