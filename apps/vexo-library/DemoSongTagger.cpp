#include "DemoSongTagger.h"

#include <taglib/attachedpictureframe.h>
#include <taglib/id3v2tag.h>
#include <taglib/textidentificationframe.h>
#include <taglib/wavfile.h>

namespace vexo::library {
namespace {

TagLib::String utf8(const std::string& text) {
    return TagLib::String(text, TagLib::String::UTF8);
}

// Text frames in UTF-16, which ID3v2.3 readers understand for any script.
void setText(TagLib::ID3v2::Tag& tag, const char* frameID, const std::string& text) {
    tag.removeFrames(frameID);
    if (text.empty())
        return;
    auto* frame = new TagLib::ID3v2::TextIdentificationFrame(frameID, TagLib::String::UTF16);
    frame->setText(utf8(text));
    tag.addFrame(frame);
}

} // namespace

bool DemoSongTagger::tag(const std::filesystem::path& path, const DemoSong& song, int track,
                         const std::optional<std::vector<std::uint8_t>>& artworkPng, std::string& error) {
    TagLib::RIFF::WAV::File file(path.c_str(), false);
    if (!file.isValid()) {
        error = "TagLib cannot open it as a WAVE file";
        return false;
    }
    TagLib::ID3v2::Tag& tag = *file.ID3v2Tag();
    setText(tag, "TIT2", song.title);
    setText(tag, "TPE1", song.artist);
    setText(tag, "TALB", song.album);
    setText(tag, "TCON", "Electronic");
    setText(tag, "TRCK", std::to_string(track));
    setText(tag, "TBPM", song.tempoTagged ? std::to_string(song.beatsPerMinute) : "");
    setText(tag, "TKEY", song.keyTag);
    tag.removeFrames("APIC");
    if (artworkPng) {
        auto* picture = new TagLib::ID3v2::AttachedPictureFrame;
        picture->setMimeType("image/png");
        picture->setType(TagLib::ID3v2::AttachedPictureFrame::FrontCover);
        picture->setDescription("Cover");
        picture->setPicture(TagLib::ByteVector(reinterpret_cast<const char*>(artworkPng->data()),
                                               static_cast<unsigned>(artworkPng->size())));
        tag.addFrame(picture);
    }
    if (!file.save(TagLib::RIFF::WAV::File::ID3v2, TagLib::File::StripOthers, TagLib::ID3v2::v3)) {
        error = "TagLib could not save the tags";
        return false;
    }
    return true;
}

} // namespace vexo::library
