// Draws every image of the asset catalogue into a directory, as the build's step that
// turns these sources into PNG files: vexo-draw-assets OUTPUT_DIRECTORY.
//
// One dark look for a 312 x 390 pixel watch face, drawn at one pixel per point: near-black
// surfaces, grey 0.145 panels (the artwork badge's ring), white glyphs, and the
// application's orange for what is on or playing.

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <numbers>
#include <string>
#include <vector>

#include "platform/graphics/AssetCatalog.h"
#include "platform/graphics/Canvas.h"

namespace {

using namespace vexo::graphics;

constexpr double kPi = std::numbers::pi;
constexpr Color kOrange{0.918, 0.545, 0.145};
constexpr Color kOrangeLight{0.973, 0.667, 0.333};
constexpr Color kOrangeDeep{0.800, 0.420, 0.080};
constexpr Color kPanel = Color::gray(0.145);
constexpr Color kPanelLight = Color::gray(0.20);
constexpr Color kTrack = Color::gray(0.22);
constexpr Color kIdleSurface = Color::gray(0.09);
constexpr Color kIdleGlyph = Color::gray(0.38);
constexpr Color kWhite = Color::gray(1);
constexpr Color kLightGray = Color::gray(0.75);

struct Asset {
    int width;
    int height;
    std::function<void(Canvas&)> draw;
};

Rect square(double side) {
    return {0, 0, side, side};
}

Rect centeredSquare(Point center, double radius) {
    return {center.x - radius, center.y - radius, 2 * radius, 2 * radius};
}

Point polar(Point center, double radius, double angle) {
    return {center.x + radius * std::cos(angle), center.y + radius * std::sin(angle)};
}

// A slice of an annulus, as a polygon.
std::vector<Point> annulusSector(Point center, double inner, double outer, double from, double to) {
    std::vector<Point> points;
    constexpr int kSteps = 24;
    for (int i = 0; i <= kSteps; ++i)
        points.push_back(polar(center, outer, from + (to - from) * i / kSteps));
    for (int i = kSteps; i >= 0; --i)
        points.push_back(polar(center, inner, from + (to - from) * i / kSteps));
    return points;
}

// ---- round buttons -------------------------------------------------------------------

// A disc with a soft top-lit gradient, the face of every round transport button.
void buttonDisc(Canvas& canvas, Point center, double radius, bool active) {
    Rect rect = centeredSquare(center, radius);
    if (active) {
        canvas.fillOval(
            rect, LinearGradient{
                      {center.x, center.y - radius}, {center.x, center.y + radius}, kPanelLight, Color::gray(0.11)});
        canvas.strokeOval(rect.inset(0.5), 1, Color::gray(1, 0.10));
    } else {
        canvas.fillOval(rect, kIdleSurface);
        canvas.strokeOval(rect.inset(0.5), 1, Color::gray(1, 0.05));
    }
}

// A right-pointing triangle whose centre of mass sits at `center`, so it looks centred.
void playTriangle(Canvas& canvas, Point center, double height, const Color& color) {
    double width = height * 0.866;
    double left = center.x - width / 3;
    Point points[] = {{left, center.y - height / 2}, {left + width, center.y}, {left, center.y + height / 2}};
    canvas.fillPolygon(points, color);
}

void pauseBars(Canvas& canvas, Point center, double height, const Color& color) {
    double barWidth = height * 0.28, gap = height * 0.24;
    canvas.fillRoundedRect({center.x - gap / 2 - barWidth, center.y - height / 2, barWidth, height}, 1.5, color);
    canvas.fillRoundedRect({center.x + gap / 2, center.y - height / 2, barWidth, height}, 1.5, color);
}

// Two triangles and a bar: skip to the next song (`forward`) or the previous one.
void skipGlyph(Canvas& canvas, Point center, double height, bool forward, const Color& color) {
    double w = height * 0.62, bar = height * 0.16;
    double direction = forward ? 1 : -1;
    double start = center.x - direction * (w + bar / 2) * 0.85;
    for (int i = 0; i < 2; ++i) {
        double base = start + direction * i * w * 0.7;
        Point points[] = {
            {base, center.y - height / 2}, {base + direction * w, center.y}, {base, center.y + height / 2}};
        canvas.fillPolygon(points, color);
    }
    double barX = start + direction * (w * 0.7 + w);
    canvas.fillRect({forward ? barX : barX - bar, center.y - height / 2, bar, height}, color);
}

enum class Transport { Play, Pause };

Asset transportButton(Transport kind, bool active) {
    return {64, 64, [=](Canvas& canvas) {
                Point center{32, 32};
                buttonDisc(canvas, center, 25, active);
                Color glyph = active ? kWhite : kIdleGlyph;
                if (kind == Transport::Play)
                    playTriangle(canvas, center, 20, glyph);
                else
                    pauseBars(canvas, center, 18, glyph);
            }};
}

Asset skipButton(bool forward, bool active) {
    return {44, 44, [=](Canvas& canvas) {
                Point center{22, 22};
                buttonDisc(canvas, center, 20, active);
                skipGlyph(canvas, center, 13, forward, active ? kWhite : kIdleGlyph);
            }};
}

// ---- flat buttons --------------------------------------------------------------------

Fill buttonFill(const Rect& rect, bool active) {
    if (active)
        return LinearGradient{{0, rect.y}, {0, rect.y + rect.height}, kOrangeLight, kOrangeDeep};
    return LinearGradient{{0, rect.y}, {0, rect.y + rect.height}, kPanelLight, Color::gray(0.12)};
}

Asset centerButton(bool active) {
    return {136, 44, [=](Canvas& canvas) {
                Rect rect{0, 0, 136, 44};
                canvas.fillRoundedRect(rect, 12, buttonFill(rect, active));
                // A faint top edge, as light catching the upper rim.
                canvas.fillRoundedRect({12, 1, 112, 1}, 0, Color::gray(1, active ? 0.25 : 0.08));
            }};
}

// One half of a two-segment control: rounded on its outer side only, with a hairline
// where it meets the other half.
Asset segmentButton(bool left, bool active) {
    return {68, 36, [=](Canvas& canvas) {
                constexpr double kRadius = 12;
                Rect visible{0, 0, 68, 36};
                Rect shape = left ? Rect{0, 0, 68 + kRadius, 36} : Rect{-kRadius, 0, 68 + kRadius, 36};
                canvas.fillRoundedRect(shape, kRadius, buttonFill(visible, active));
                canvas.fillRect({left ? 67.0 : 0.0, 4, 1, 28}, Color::gray(0, 0.55));
            }};
}

// ---- progress ring -------------------------------------------------------------------

// The ring around the play button: a dim track and, from twelve o'clock clockwise, an arc
// that covers index / 49 of the circle. Orange while playing, light grey while paused.
Asset trackingFrame(int index, bool playing) {
    return {64, 64, [=](Canvas& canvas) {
                Point center{32, 32};
                constexpr double kRadius = 29.5, kWidth = 4;
                canvas.strokeOval(centeredSquare(center, kRadius), kWidth, kTrack);
                if (index <= 0)
                    return;
                Color color = playing ? kOrange : kLightGray;
                double start = -kPi / 2;
                if (index >= 49) {
                    canvas.strokeOval(centeredSquare(center, kRadius), kWidth, color);
                    return;
                }
                canvas.strokeArc(center, kRadius, start, start + 2 * kPi * index / 49.0, kWidth, color,
                                 Canvas::LineCap::Round);
            }};
}

// ---- crossfader ----------------------------------------------------------------------

// The crossfader with its knob in the middle of the fifth of the travel that `frame`
// (0 to 4) stands for; the automatic mode paints the knob orange and marks the travel.
Asset crossfader(int frame, bool automatic) {
    return {160, 40, [=](Canvas& canvas) {
                constexpr double kLeft = 14, kRight = 146, kMid = 20;
                canvas.fillRoundedRect({kLeft - 3, kMid - 3, kRight - kLeft + 6, 6}, 3, kTrack);
                for (int i = 0; i <= 4; ++i) {
                    double x = kLeft + (kRight - kLeft) * i / 4.0;
                    canvas.fillRect({x - 0.5, i == 2 ? 5.0 : 8.0, 1, i == 2 ? 30.0 : 24.0}, Color::gray(1, 0.18));
                }
                double knobX = kLeft + (kRight - kLeft) * (0.1 + 0.2 * frame);
                if (automatic) {
                    // Chevrons along the travel: the mixer moves the fader by itself.
                    for (double x = kLeft + 10; x < kRight - 6; x += 14) {
                        if (std::abs(x - knobX) < 16)
                            continue;
                        double d = x < knobX ? 1 : -1;
                        Point chevron[] = {{x - 2 * d, kMid - 4}, {x + 2 * d, kMid}, {x - 2 * d, kMid + 4}};
                        canvas.strokePolyline(chevron, 1.5, kOrange.withAlpha(0.45), Canvas::LineCap::Round);
                    }
                }
                Rect knob{knobX - 10, kMid - 15, 20, 30};
                canvas.fillRoundedRect(knob.inset(-1), 5, Color::gray(0, 0.6));
                Fill face =
                    automatic ? Fill(LinearGradient{{0, knob.y}, {0, knob.y + knob.height}, kOrangeLight, kOrangeDeep})
                              : Fill(LinearGradient{{0, knob.y}, {0, knob.y + knob.height}, kWhite, Color::gray(0.62)});
                canvas.fillRoundedRect(knob, 4, face);
                canvas.fillRect({knobX - 6, kMid - 0.75, 12, 1.5}, Color::gray(0, 0.45));
            }};
}

// ---- artwork -------------------------------------------------------------------------

// A record seen from above, filling `disc`: grooves, two catches of light, an orange label
// with the V of Vexo.
void vinyl(Canvas& canvas, const Rect& disc) {
    Point c = disc.center();
    double r = disc.width / 2;
    canvas.fillOval(disc, RadialGradient{c, r, Color::gray(0.16), Color::gray(0.05)});
    for (double groove = r * 0.40; groove < r * 0.95; groove += std::max(1.6, r * 0.045))
        canvas.strokeOval(centeredSquare(c, groove), 0.6, Color::gray(1, 0.055));
    for (double angle : {-kPi * 0.80, kPi * 0.20}) {
        std::vector<Point> sheen = annulusSector(c, r * 0.36, r * 0.96, angle, angle + kPi * 0.22);
        canvas.fillPolygon(sheen, Color::gray(1, 0.07));
    }
    canvas.strokeOval(disc.inset(0.5), 1, Color::gray(1, 0.08));
    double label = r * 0.34;
    canvas.fillOval(centeredSquare(c, label),
                    RadialGradient{{c.x - label * 0.3, c.y - label * 0.3}, label * 1.4, kOrangeLight, kOrangeDeep});
    // The V, a chevron of two strokes meeting at the bottom.
    double v = label * 0.52;
    Point letter[] = {{c.x - v, c.y - v * 0.75}, {c.x, c.y + v * 0.80}, {c.x + v, c.y - v * 0.75}};
    canvas.strokePolyline(letter, std::max(1.5, label * 0.17), Color::gray(0.08), Canvas::LineCap::Round);
}

// The idle deck's artwork: the record inside the badge's circle, the ring left clear for
// the group animation behind it.
Asset emptyDeckArtwork(int side, double inset) {
    return {side, side, [=](Canvas& canvas) { vinyl(canvas, square(side).inset(inset)); }};
}

// One frame of the idle deck's animation: in the ring around the record, an orange comet
// that goes round once in kArtworkAnimationFrameCount frames.
Asset emptyDeckAnimationFrame(int side, double ring, int frame) {
    return {side, side, [=](Canvas& canvas) {
                Point c{side / 2.0, side / 2.0};
                double radius = side / 2.0 - ring / 2;
                double width = ring - 2;
                canvas.strokeOval(centeredSquare(c, radius), width, kPanel);
                double head = -kPi / 2 + 2 * kPi * frame / AssetCatalog::kArtworkAnimationFrameCount;
                constexpr int kSegments = 18;
                constexpr double kTail = kPi * 0.75;
                for (int i = 0; i < kSegments; ++i) {
                    double from = head - kTail * (i + 1) / kSegments, to = head - kTail * i / kSegments;
                    double fade = 1.0 - static_cast<double>(i) / kSegments;
                    canvas.strokeArc(c, radius, from, to + 0.01, width, kOrange.withAlpha(fade * fade));
                }
                canvas.fillOval(centeredSquare(polar(c, radius, head), width / 2), kOrangeLight);
            }};
}

// The image shown for a song without artwork: two beamed notes on a dark field, kept
// inside the middle of the square so that every round crop shows all of it.
Asset defaultArtwork() {
    return {256, 256, [](Canvas& canvas) {
                canvas.fillRect(square(256),
                                RadialGradient{{128, 96}, 200, Color{0.20, 0.20, 0.23}, Color{0.04, 0.04, 0.05}});
                Fill note = LinearGradient{{0, 64}, {0, 190}, kOrangeLight, kOrangeDeep};
                // Stems and beam.
                canvas.fillRect({106, 70, 9, 106}, note);
                canvas.fillRect({170, 58, 9, 106}, note);
                Point beam[] = {{106, 70}, {179, 58}, {179, 80}, {106, 92}};
                canvas.fillPolygon(beam, note);
                // Slanted oval heads, drawn as rotated polygons.
                for (Point head : {Point{92, 178}, Point{156, 166}}) {
                    std::vector<Point> points;
                    for (int i = 0; i < 48; ++i) {
                        double t = 2 * kPi * i / 48;
                        double x = 22 * std::cos(t), y = 15 * std::sin(t);
                        double tilt = -0.38;
                        points.push_back({head.x + x * std::cos(tilt) - y * std::sin(tilt),
                                          head.y + x * std::sin(tilt) + y * std::cos(tilt)});
                    }
                    canvas.fillPolygon(points, note);
                }
            }};
}

// The force-touch menu's automix icon: two arrows chasing each other round a circle, in
// white on transparent as menu icons are.
Asset automixIcon() {
    return {80, 80, [](Canvas& canvas) {
                Point c{40, 40};
                constexpr double kRadius = 24, kWidth = 6;
                for (int half = 0; half < 2; ++half) {
                    double start = -kPi / 2 + half * kPi + 0.35, end = start + kPi - 0.7;
                    canvas.strokeArc(c, kRadius, start, end, kWidth, kWhite, Canvas::LineCap::Round);
                    // Arrowhead at the end of the arc, pointing along it.
                    Point tip = polar(c, kRadius, end + 0.30);
                    Point outer = polar(c, kRadius + 8, end - 0.08);
                    Point inner = polar(c, kRadius - 8, end - 0.08);
                    Point head[] = {outer, tip, inner};
                    canvas.fillPolygon(head, kWhite);
                }
                // A small fader in the middle: what automix moves.
                canvas.fillRoundedRect({28, 38.5, 24, 3}, 1.5, Color::gray(1, 0.7));
                canvas.fillRoundedRect({35, 33, 6, 14}, 2, kWhite);
            }};
}

// The row icon of a playlist: lines of a list and a note.
Asset playlistIcon() {
    return {32, 32, [](Canvas& canvas) {
                for (int i = 0; i < 3; ++i)
                    canvas.fillRoundedRect({3, 8.0 + i * 6, i == 2 ? 11.0 : 17.0, 2.5}, 1.25, kLightGray);
                canvas.fillRect({24, 8, 2.5, 15}, kOrange);
                Point flag[] = {{24, 8}, {30, 10}, {30, 13}, {26.5, 12}};
                canvas.fillPolygon(flag, kOrange);
                canvas.fillOval({17.5, 20, 8, 6}, kOrange);
            }};
}

std::map<std::string, Asset> allAssets() {
    std::map<std::string, Asset> assets;
    assets["turntable-play"] = transportButton(Transport::Play, false);
    assets["turntable-play-active"] = transportButton(Transport::Play, true);
    assets["turntable-pause"] = transportButton(Transport::Pause, false);
    assets["turntable-pause-active"] = transportButton(Transport::Pause, true);
    assets["turntable-prev"] = skipButton(false, false);
    assets["turntable-prev-active"] = skipButton(false, true);
    assets["turntable-next"] = skipButton(true, false);
    assets["turntable-next-active"] = skipButton(true, true);
    assets["turntable-button-center"] = centerButton(false);
    assets["turntable-button-center-active"] = centerButton(true);
    assets["turntable-button-seg2-left"] = segmentButton(true, false);
    assets["turntable-button-seg2-left-active"] = segmentButton(true, true);
    assets["turntable-button-seg2-right"] = segmentButton(false, false);
    assets["turntable-button-seg2-right-active"] = segmentButton(false, true);
    assets["turntable-artwork-vexo"] = emptyDeckArtwork(92, 6);
    assets["mixer-turntable-artwork-vexo"] = emptyDeckArtwork(144, 8);
    assets["default-artwork"] = defaultArtwork();
    assets["automix"] = automixIcon();
    assets["library-playlist"] = playlistIcon();
    for (int i = 0; i < 50; ++i) {
        assets["tracking-" + std::to_string(i) + "-f"] = trackingFrame(i, false);
        assets["tracking-active-" + std::to_string(i) + "-f"] = trackingFrame(i, true);
    }
    for (int i = 0; i < 5; ++i) {
        assets["mixer-crossfader-manual" + std::to_string(i) + "-f"] = crossfader(i, false);
        assets["mixer-crossfader-auto" + std::to_string(i) + "-f"] = crossfader(i, true);
    }
    for (int i = 0; i < AssetCatalog::kArtworkAnimationFrameCount; ++i) {
        assets[std::string(AssetCatalog::kTurntableArtworkAnimationPrefix) + std::to_string(i)] =
            emptyDeckAnimationFrame(92, 6, i);
        assets[std::string(AssetCatalog::kMixerArtworkAnimationPrefix) + std::to_string(i)] =
            emptyDeckAnimationFrame(144, 8, i);
    }
    return assets;
}

bool writeFile(const std::filesystem::path& path, const std::vector<std::uint8_t>& bytes) {
    std::filesystem::path temporary = path;
    temporary += ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!out)
            return false;
    }
    std::error_code error;
    std::filesystem::rename(temporary, path, error);
    return !error;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIRECTORY\n", argv[0]);
        return 2;
    }
    std::filesystem::path directory = argv[1];
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        std::fprintf(stderr, "cannot create %s: %s\n", directory.c_str(), error.message().c_str());
        return 1;
    }
    std::map<std::string, Asset> assets = allAssets();
    int failures = 0;
    for (const std::string& name : AssetCatalog::allNames()) {
        auto found = assets.find(name);
        if (found == assets.end()) {
            std::fprintf(stderr, "no drawing for asset %s\n", name.c_str());
            ++failures;
            continue;
        }
        Canvas canvas(found->second.width, found->second.height);
        found->second.draw(canvas);
        std::optional<std::vector<std::uint8_t>> png = canvas.encodePng();
        if (!png || !writeFile(directory / (name + ".png"), *png)) {
            std::fprintf(stderr, "cannot write asset %s\n", name.c_str());
            ++failures;
        }
        assets.erase(found);
    }
    for (const auto& [name, asset] : assets) {
        std::fprintf(stderr, "asset %s is drawn but not in the catalogue\n", name.c_str());
        ++failures;
    }
    return failures == 0 ? 0 : 1;
}
