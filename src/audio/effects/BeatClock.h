#pragma once

// Where the beat stands at the first frame of a block, for the effects that follow the tempo
// (Echo's delay, Gate's pattern). A deck without a tempo runs at 120 BPM from frame 0.
namespace vexo::sound {

struct BeatClock {
    // Output frames per beat at the tempo heard; always positive.
    double framesPerBeat = 24000;
    // How far into the current beat the block's first frame is, in beats: 0 <= phase < 1.
    double phase = 0;
};

} // namespace vexo::sound
