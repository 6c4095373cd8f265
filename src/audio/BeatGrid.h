#pragma once

// A song's beats as a constant-tempo grid: a beat every 60 / beatsPerMinute seconds of the song
// from its first downbeat on. A song without a known tempo has no grid (beatsPerMinute 0).
namespace vexo::sound {

struct BeatGrid {
    double beatsPerMinute = 0;
    // Seconds of the song.
    double firstBeat = 0;

    [[nodiscard]] bool isKnown() const { return beatsPerMinute > 0; }
};

} // namespace vexo::sound
