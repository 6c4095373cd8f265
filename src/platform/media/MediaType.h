#pragma once

#include <cstdint>

// Kinds of media item as a bit mask, with the host platform's values, so that a filter such
// as 0xFFFF (every audio and every video kind) means here what it means there.
namespace vexo::media {

// The unsigned 64-bit identifier that names one media item (or one playlist) in the index,
// the same in every process that opens it. Never 0.
using PersistentID = std::uint64_t;

enum class MediaType : std::uint64_t {
    Music = 1 << 0,
    Podcast = 1 << 1,
    AudioBook = 1 << 2,
    AudioITunesU = 1 << 3,
    AnyAudio = 0x00ff,
    Movie = 1 << 8,
    TVShow = 1 << 9,
    VideoPodcast = 1 << 10,
    MusicVideo = 1 << 11,
    VideoITunesU = 1 << 12,
    HomeVideo = 1 << 13,
    AnyVideo = 0xff00,
    Any = 0xffff,
};

constexpr MediaType operator|(MediaType a, MediaType b) {
    return static_cast<MediaType>(static_cast<std::uint64_t>(a) | static_cast<std::uint64_t>(b));
}

constexpr MediaType operator&(MediaType a, MediaType b) {
    return static_cast<MediaType>(static_cast<std::uint64_t>(a) & static_cast<std::uint64_t>(b));
}

// True when an item of kind `type` passes a query filtered by `filter`: the two masks share
// a bit, as with the host platform's media-type predicate.
constexpr bool matches(MediaType type, MediaType filter) {
    return (static_cast<std::uint64_t>(type) & static_cast<std::uint64_t>(filter)) != 0;
}

} // namespace vexo::media
