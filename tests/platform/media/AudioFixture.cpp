#include "platform/media/AudioFixture.h"

#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>

#include <taglib/attachedpictureframe.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/flacpicture.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4file.h>
#include <taglib/mpegfile.h>
#include <taglib/opusfile.h>
#include <taglib/tpropertymap.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>
#include <taglib/xiphcomment.h>

#include "platform/audio/AudioFixture.h"

namespace vexo::testing {
namespace {

using Bytes = std::vector<std::uint8_t>;

void put(Bytes& out, std::string_view text) {
    out.insert(out.end(), text.begin(), text.end());
}

// Byte `index` (0 the lowest) of `value`; bytes beyond the eighth are 0.
std::uint8_t byteOf(std::uint64_t value, int index) {
    return index < 8 ? static_cast<std::uint8_t>(value >> (8 * index)) : 0;
}

void putLE(Bytes& out, std::uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(byteOf(value, i));
}

void putBE(Bytes& out, std::uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i)
        out.push_back(byteOf(value, i));
}

// MPEG-1 layer III, 32 kbit/s, 32 kHz, mono: 144-byte frames of 36 ms whose zero side
// information decodes as silence.
Bytes mp3(double seconds) {
    const auto frames = static_cast<int>(std::ceil(seconds * 32000 / 1152));
    Bytes out;
    for (int i = 0; i < frames; ++i) {
        const std::uint8_t header[] = {0xFF, 0xFB, 0x18, 0xC0};
        out.insert(out.end(), std::begin(header), std::end(header));
        out.insert(out.end(), 140, 0);
    }
    return out;
}

// The stream header alone: STREAMINFO with the sample count, no frames.
Bytes flac(double seconds) {
    constexpr std::uint64_t kRate = 8000;
    const auto samples = static_cast<std::uint64_t>(std::llround(seconds * kRate));
    Bytes out;
    put(out, "fLaC");
    out.push_back(0x80); // last metadata block, STREAMINFO
    putBE(out, 34, 3);
    putBE(out, 4096, 2);
    putBE(out, 4096, 2);
    putBE(out, 0, 3);
    putBE(out, 0, 3);
    // Sample rate (20 bits), channels - 1 (3), bits per sample - 1 (5), samples (36).
    const std::uint64_t packed = (kRate << 44) | (0ull << 41) | (15ull << 36) | samples;
    putBE(out, packed, 8);
    out.insert(out.end(), 16, 0); // MD5 unknown
    return out;
}

std::uint32_t oggCrc(const Bytes& page) {
    static const auto table = [] {
        std::array<std::uint32_t, 256> entries{};
        for (std::uint32_t i = 0; i < 256; ++i) {
            std::uint32_t value = i << 24;
            for (int bit = 0; bit < 8; ++bit)
                value = (value & 0x80000000u) ? (value << 1) ^ 0x04C11DB7u : value << 1;
            entries[i] = value;
        }
        return entries;
    }();
    std::uint32_t crc = 0;
    for (const std::uint8_t byte : page)
        crc = (crc << 8) ^ table[((crc >> 24) ^ byte) & 0xFF];
    return crc;
}

void putOggPage(Bytes& out, const Bytes& packet, std::uint8_t flags, std::uint64_t granule, std::uint32_t sequence) {
    Bytes page;
    put(page, "OggS");
    page.push_back(0);
    page.push_back(flags);
    putLE(page, granule, 8);
    putLE(page, 0x56584D4C, 4); // serial number
    putLE(page, sequence, 4);
    putLE(page, 0, 4); // CRC, filled in below
    Bytes lacing(packet.size() / 255, 255);
    lacing.push_back(static_cast<std::uint8_t>(packet.size() % 255));
    page.push_back(static_cast<std::uint8_t>(lacing.size()));
    page.insert(page.end(), lacing.begin(), lacing.end());
    page.insert(page.end(), packet.begin(), packet.end());
    const std::uint32_t crc = oggCrc(page);
    for (int i = 0; i < 4; ++i)
        page[22 + i] = static_cast<std::uint8_t>(crc >> (8 * i));
    out.insert(out.end(), page.begin(), page.end());
}

Bytes oggVorbis(double seconds) {
    constexpr std::uint32_t kRate = 8000;
    Bytes identification{0x01};
    put(identification, "vorbis");
    putLE(identification, 0, 4);
    identification.push_back(1);
    putLE(identification, kRate, 4);
    putLE(identification, 0, 4);
    putLE(identification, 32000, 4);
    putLE(identification, 0, 4);
    identification.push_back(0xB8); // block sizes 256 and 2048
    identification.push_back(1);
    Bytes comment{0x03};
    put(comment, "vorbis");
    putLE(comment, 4, 4);
    put(comment, "vexo");
    putLE(comment, 0, 4);
    comment.push_back(1);
    Bytes setup{0x05};
    put(setup, "vorbis");
    setup.insert(setup.end(), 8, 0);

    Bytes out;
    putOggPage(out, identification, 0x02, 0, 0);
    putOggPage(out, comment, 0x00, 0, 1);
    putOggPage(out, setup, 0x00, 0, 2);
    putOggPage(out, Bytes(16, 0), 0x04, static_cast<std::uint64_t>(std::llround(seconds * kRate)), 3);
    return out;
}

Bytes opus(double seconds) {
    constexpr std::uint16_t kPreSkip = 312;
    Bytes head;
    put(head, "OpusHead");
    head.push_back(1);
    head.push_back(1);
    putLE(head, kPreSkip, 2);
    putLE(head, 48000, 4);
    putLE(head, 0, 2);
    head.push_back(0);
    Bytes tags;
    put(tags, "OpusTags");
    putLE(tags, 4, 4);
    put(tags, "vexo");
    putLE(tags, 0, 4);

    Bytes out;
    putOggPage(out, head, 0x02, 0, 0);
    putOggPage(out, tags, 0x00, 0, 1);
    putOggPage(out, Bytes{0xF8, 0xFF, 0xFE}, 0x04, static_cast<std::uint64_t>(std::llround(seconds * 48000)) + kPreSkip,
               2);
    return out;
}

Bytes atom(std::string_view type, const Bytes& payload) {
    Bytes out;
    putBE(out, 8 + payload.size(), 4);
    put(out, type);
    out.insert(out.end(), payload.begin(), payload.end());
    return out;
}

Bytes concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

Bytes matrix() {
    Bytes out;
    for (const std::uint32_t value : {0x00010000u, 0u, 0u, 0u, 0x00010000u, 0u, 0u, 0u, 0x40000000u})
        putBE(out, value, 4);
    return out;
}

// ftyp, a moov with one sound track (mp4a, empty sample tables) and a small mdat.
Bytes m4a(double seconds) {
    constexpr std::uint32_t kRate = 44100;
    const auto duration = static_cast<std::uint32_t>(std::lround(seconds * kRate));
    Bytes ftypPayload;
    put(ftypPayload, "M4A ");
    putBE(ftypPayload, 0, 4);
    put(ftypPayload, "M4A mp42isom");

    Bytes mvhd;
    putBE(mvhd, 0, 4 + 4 + 4);
    putBE(mvhd, kRate, 4);
    putBE(mvhd, duration, 4);
    putBE(mvhd, 0x00010000, 4);
    putBE(mvhd, 0x0100, 2);
    mvhd.insert(mvhd.end(), 10, 0);
    const Bytes identity = matrix();
    mvhd.insert(mvhd.end(), identity.begin(), identity.end());
    mvhd.insert(mvhd.end(), 24, 0);
    putBE(mvhd, 2, 4);

    Bytes tkhd;
    putBE(tkhd, 7, 4);
    putBE(tkhd, 0, 8);
    putBE(tkhd, 1, 4);
    putBE(tkhd, 0, 4);
    putBE(tkhd, duration, 4);
    tkhd.insert(tkhd.end(), 8, 0);
    putBE(tkhd, 0, 4);
    putBE(tkhd, 0x0100, 2);
    putBE(tkhd, 0, 2);
    tkhd.insert(tkhd.end(), identity.begin(), identity.end());
    putBE(tkhd, 0, 8);

    Bytes mdhd;
    putBE(mdhd, 0, 12);
    putBE(mdhd, kRate, 4);
    putBE(mdhd, duration, 4);
    putBE(mdhd, 0x55C4, 2); // "und"
    putBE(mdhd, 0, 2);

    Bytes hdlr;
    putBE(hdlr, 0, 8);
    put(hdlr, "soun");
    hdlr.insert(hdlr.end(), 13, 0);

    Bytes mp4a;
    mp4a.insert(mp4a.end(), 6, 0);
    putBE(mp4a, 1, 2);
    mp4a.insert(mp4a.end(), 8, 0);
    putBE(mp4a, 1, 2);  // channels
    putBE(mp4a, 16, 2); // bits per sample
    putBE(mp4a, 0, 4);
    putBE(mp4a, static_cast<std::uint64_t>(kRate) << 16, 4);
    Bytes stsd;
    putBE(stsd, 0, 4);
    putBE(stsd, 1, 4);
    const Bytes entry = atom("mp4a", mp4a);
    stsd.insert(stsd.end(), entry.begin(), entry.end());
    Bytes emptyTable;
    putBE(emptyTable, 0, 8);
    Bytes stsz;
    putBE(stsz, 0, 12);

    const Bytes stbl = atom("stbl", concat({atom("stsd", stsd), atom("stts", emptyTable), atom("stsc", emptyTable),
                                            atom("stsz", stsz), atom("stco", emptyTable)}));
    Bytes smhd;
    putBE(smhd, 0, 8);
    const Bytes minf = atom("minf", concat({atom("smhd", smhd), stbl}));
    const Bytes mdia = atom("mdia", concat({atom("mdhd", mdhd), atom("hdlr", hdlr), minf}));
    const Bytes trak = atom("trak", concat({atom("tkhd", tkhd), mdia}));
    const Bytes moov = atom("moov", concat({atom("mvhd", mvhd), trak}));
    return concat({atom("ftyp", ftypPayload), moov, atom("mdat", Bytes(32, 0))});
}

TagLib::String utf8(const std::string& text) {
    return TagLib::String(text, TagLib::String::UTF8);
}

TagLib::ByteVector byteVector(const std::vector<std::uint8_t>& bytes) {
    return TagLib::ByteVector(reinterpret_cast<const char*>(bytes.data()), static_cast<unsigned>(bytes.size()));
}

TagLib::ID3v2::AttachedPictureFrame* pictureFrame(const std::vector<std::uint8_t>& bytes) {
    auto* frame = new TagLib::ID3v2::AttachedPictureFrame;
    frame->setMimeType("image/jpeg");
    frame->setType(TagLib::ID3v2::AttachedPictureFrame::FrontCover);
    frame->setPicture(byteVector(bytes));
    return frame;
}

TagLib::FLAC::Picture* flacPicture(const std::vector<std::uint8_t>& bytes) {
    auto* picture = new TagLib::FLAC::Picture;
    picture->setMimeType("image/jpeg");
    picture->setType(TagLib::FLAC::Picture::FrontCover);
    picture->setData(byteVector(bytes));
    return picture;
}

bool tag(const std::filesystem::path& path, AudioFixture::Format format, const AudioFixture::Tags& tags) {
    TagLib::FileRef reference(path.c_str(), false);
    if (reference.isNull())
        return false;
    TagLib::Tag* tag = reference.tag();
    tag->setTitle(utf8(tags.title));
    tag->setArtist(utf8(tags.artist));
    tag->setAlbum(utf8(tags.album));
    tag->setGenre(utf8(tags.genre));
    TagLib::File* file = reference.file();
    using Format = AudioFixture::Format;
    const std::string keyName = tags.keyUnderOtherName ? "KEY" : "INITIALKEY";
    if (format == Format::M4a) {
        auto* mp4 = static_cast<TagLib::MP4::File*>(file)->tag();
        if (!tags.bpm.empty())
            mp4->setItem("tmpo", TagLib::MP4::Item(std::atoi(tags.bpm.c_str())));
        if (!tags.initialKey.empty())
            mp4->setItem("----:com.apple.iTunes:" + (tags.keyUnderOtherName ? std::string("KEY") : "initialkey"),
                         TagLib::MP4::Item(TagLib::StringList(utf8(tags.initialKey))));
    } else if (!tags.bpm.empty() || !tags.initialKey.empty()) {
        // Before the pictures: a property map replaces the frames it covers.
        TagLib::PropertyMap properties = file->properties();
        if (!tags.bpm.empty())
            properties.replace("BPM", TagLib::StringList(utf8(tags.bpm)));
        if (!tags.initialKey.empty())
            properties.replace(keyName, TagLib::StringList(utf8(tags.initialKey)));
        file->setProperties(properties);
    }
    if (tags.artwork) {
        switch (format) {
        case Format::Wav:
            static_cast<TagLib::RIFF::WAV::File*>(file)->ID3v2Tag()->addFrame(pictureFrame(*tags.artwork));
            break;
        case Format::Mp3:
            static_cast<TagLib::MPEG::File*>(file)->ID3v2Tag(true)->addFrame(pictureFrame(*tags.artwork));
            break;
        case Format::Flac:
            static_cast<TagLib::FLAC::File*>(file)->addPicture(flacPicture(*tags.artwork));
            break;
        case Format::OggVorbis:
            static_cast<TagLib::Ogg::Vorbis::File*>(file)->tag()->addPicture(flacPicture(*tags.artwork));
            break;
        case Format::Opus:
            static_cast<TagLib::Ogg::Opus::File*>(file)->tag()->addPicture(flacPicture(*tags.artwork));
            break;
        case Format::M4a: {
            TagLib::MP4::CoverArtList covers;
            covers.append(TagLib::MP4::CoverArt(TagLib::MP4::CoverArt::JPEG, byteVector(*tags.artwork)));
            static_cast<TagLib::MP4::File*>(file)->tag()->setItem("covr", covers);
            break;
        }
        }
    }
    if (tags.mp4MediaKind && format == Format::M4a)
        static_cast<TagLib::MP4::File*>(file)->tag()->setItem(
            "stik", TagLib::MP4::Item(static_cast<unsigned char>(*tags.mp4MediaKind)));
    return reference.save();
}

} // namespace

std::string AudioFixture::extension(Format format) {
    switch (format) {
    case Format::Wav:
        return ".wav";
    case Format::Mp3:
        return ".mp3";
    case Format::Flac:
        return ".flac";
    case Format::OggVorbis:
        return ".ogg";
    case Format::Opus:
        return ".opus";
    case Format::M4a:
        return ".m4a";
    }
    return {};
}

bool AudioFixture::write(const std::filesystem::path& path, Format format, double seconds, const Tags& tags) {
    Bytes bytes;
    switch (format) {
    case Format::Wav:
        // The program's own WAVE writer: 8 kHz of silence.
        if (!audio::testing::writeToneFile(path, {8000, seconds, 0, 0}))
            return false;
        return tag(path, format, tags);
    case Format::Mp3:
        bytes = mp3(seconds);
        break;
    case Format::Flac:
        bytes = flac(seconds);
        break;
    case Format::OggVorbis:
        bytes = oggVorbis(seconds);
        break;
    case Format::Opus:
        bytes = opus(seconds);
        break;
    case Format::M4a:
        bytes = m4a(seconds);
        break;
    }
    {
        std::ofstream stream(path, std::ios::binary | std::ios::trunc);
        stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        if (!stream)
            return false;
    }
    return tag(path, format, tags);
}

std::vector<std::uint8_t> AudioFixture::pictureBytes(int seed) {
    Bytes bytes{0xFF, 0xD8, 0xFF, 0xE0};
    for (int i = 0; i < 64; ++i)
        bytes.push_back(static_cast<std::uint8_t>((seed * 31 + i * 7) & 0xFF));
    bytes.push_back(0xFF);
    bytes.push_back(0xD9);
    return bytes;
}

} // namespace vexo::testing
