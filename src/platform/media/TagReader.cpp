#include "platform/media/TagReader.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <mutex>

#include <fcntl.h>
#include <taglib/aifffile.h>
#include <taglib/apefile.h>
#include <taglib/apetag.h>
#include <taglib/asffile.h>
#include <taglib/asfpicture.h>
#include <taglib/asftag.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/flacpicture.h>
#include <taglib/id3v2tag.h>
#include <taglib/mp4file.h>
#include <taglib/mpcfile.h>
#include <taglib/mpegfile.h>
#include <taglib/oggflacfile.h>
#include <taglib/opusfile.h>
#include <taglib/speexfile.h>
#include <taglib/tdebuglistener.h>
#include <taglib/tpropertymap.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>
#include <taglib/wavpackfile.h>
#include <taglib/xiphcomment.h>
#include <unistd.h>

#include "platform/base/SystemError.h"
#include "platform/log/Log.h"

namespace vexo::media {
namespace {

constexpr std::string_view kLogComponent = "media";

// Extensions that TagLib's file type detection recognises, lower case.
constexpr std::array<std::string_view, 22> kAudioExtensions = {
    "mp3", "mp2", "flac", "ogg",  "oga",  "opus", "spx", "m4a", "m4b", "m4p", "mp4",
    "m4v", "wav", "aif",  "aiff", "aifc", "wv",   "ape", "mpc", "wma", "asf", "tta",
};

// TagLib's own diagnostics go to our debug log rather than straight to standard error.
class DebugListener final : public TagLib::DebugListener {
public:
    void printMessage(const TagLib::String& message) override {
        std::string text = message.to8Bit(true);
        while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
            text.pop_back();
        log::debug("taglib", text);
    }
};

void installDebugListener() {
    static std::once_flag once;
    std::call_once(once, [] {
        static DebugListener listener;
        TagLib::setDebugListener(&listener);
    });
}

std::string lowerExtension(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    if (!extension.empty())
        extension.erase(0, 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

std::string trimmed(const TagLib::String& value) {
    std::string text = value.to8Bit(true);
    const auto isBlank = [](unsigned char c) { return std::isspace(c) != 0 || c == '\0'; };
    while (!text.empty() && isBlank(static_cast<unsigned char>(text.back())))
        text.pop_back();
    std::size_t start = 0;
    while (start < text.size() && isBlank(static_cast<unsigned char>(text[start])))
        ++start;
    return text.substr(start);
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
           });
}

// A picture chosen from several: the front cover when there is one, else the first.
struct PictureChoice {
    TagLib::ByteVector data;
    bool isFront = false;

    void offer(const TagLib::ByteVector& bytes, bool front) {
        if (bytes.isEmpty() || (!data.isEmpty() && (isFront || !front)))
            return;
        data = bytes;
        isFront = front;
    }
};

void offerID3v2(PictureChoice& choice, TagLib::ID3v2::Tag* tag) {
    if (tag == nullptr)
        return;
    const auto& frames = tag->frameListMap();
    const auto found = frames.find("APIC");
    if (found == frames.end())
        return;
    for (const auto* frame : found->second) {
        if (const auto* picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame*>(frame))
            choice.offer(picture->picture(), picture->type() == TagLib::ID3v2::AttachedPictureFrame::FrontCover);
    }
}

void offerFlacPictures(PictureChoice& choice, const TagLib::List<TagLib::FLAC::Picture*>& pictures) {
    for (const auto* picture : pictures)
        choice.offer(picture->data(), picture->type() == TagLib::FLAC::Picture::FrontCover);
}

void offerXiph(PictureChoice& choice, TagLib::Ogg::XiphComment* comment) {
    if (comment != nullptr)
        offerFlacPictures(choice, comment->pictureList());
}

void offerAPE(PictureChoice& choice, TagLib::APE::Tag* tag) {
    if (tag == nullptr)
        return;
    const auto& items = tag->itemListMap();
    const auto found = items.find("COVER ART (FRONT)");
    if (found == items.end())
        return;
    // A file name, a NUL, then the picture.
    const TagLib::ByteVector value = found->second.binaryData();
    const int separator = value.find('\0');
    if (separator >= 0)
        choice.offer(value.mid(static_cast<unsigned>(separator) + 1), true);
}

struct Extracted {
    PictureChoice picture;
    std::optional<MediaType> mediaType;
    // Tempo and key from fields that TagLib's common property names do not cover.
    std::string tempo;
    std::string key;
};

// MP4 keeps the key in a freeform atom ("----:com.apple.iTunes:initialkey" from most DJ
// software, "KEY" from some), which TagLib's property map leaves out.
void extractMP4TempoAndKey(Extracted& result, TagLib::MP4::Tag* tag) {
    if (tag->contains("tmpo"))
        result.tempo = std::to_string(tag->item("tmpo").toInt());
    std::string fallback;
    for (const auto& [name, item] : tag->itemMap()) {
        const std::string atom = name.to8Bit(true);
        if (!atom.starts_with("----:"))
            continue;
        const std::string field = atom.substr(atom.rfind(':') + 1);
        const TagLib::StringList values = item.toStringList();
        if (values.isEmpty())
            continue;
        if (equalsIgnoringCase(field, "initialkey"))
            result.key = trimmed(values.front());
        else if (equalsIgnoringCase(field, "key"))
            fallback = trimmed(values.front());
    }
    if (result.key.empty())
        result.key = std::move(fallback);
}

void extractASFTempoAndKey(Extracted& result, TagLib::ASF::Tag* tag) {
    if (tag->contains("WM/BeatsPerMinute"))
        result.tempo = trimmed(tag->attribute("WM/BeatsPerMinute").front().toString());
    if (tag->contains("WM/InitialKey"))
        result.key = trimmed(tag->attribute("WM/InitialKey").front().toString());
}

// The first non-blank value under any of `names`, in that order.
std::string firstProperty(const TagLib::PropertyMap& properties, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        const auto found = properties.find(name);
        if (found == properties.end())
            continue;
        for (const auto& value : found->second) {
            if (std::string text = trimmed(value); !text.empty())
                return text;
        }
    }
    return {};
}

// `text` cut to at most `bytes` bytes without splitting a UTF-8 sequence.
std::string cutAtCharacter(std::string text, std::size_t bytes) {
    if (text.size() <= bytes)
        return text;
    std::size_t end = bytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    text.resize(end);
    return text;
}

// MP4's "stik" media kind, in the values the host platform's own tagger writes.
std::optional<MediaType> mp4MediaKind(int kind) {
    switch (kind) {
    case 1:
        return MediaType::Music;
    case 2:
        return MediaType::AudioBook;
    case 6:
        return MediaType::MusicVideo;
    case 9:
        return MediaType::Movie;
    case 10:
        return MediaType::TVShow;
    case 21:
        return MediaType::Podcast;
    default:
        return std::nullopt;
    }
}

Extracted extractFormatSpecific(TagLib::File* file) {
    Extracted result;
    if (auto* mpeg = dynamic_cast<TagLib::MPEG::File*>(file)) {
        if (mpeg->hasID3v2Tag()) {
            auto* tag = mpeg->ID3v2Tag();
            offerID3v2(result.picture, tag);
            if (tag->frameListMap().contains("PCST"))
                result.mediaType = MediaType::Podcast;
        }
        if (mpeg->hasAPETag())
            offerAPE(result.picture, mpeg->APETag());
    } else if (auto* flac = dynamic_cast<TagLib::FLAC::File*>(file)) {
        offerFlacPictures(result.picture, flac->pictureList());
        if (flac->hasXiphComment())
            offerXiph(result.picture, flac->xiphComment());
        if (flac->hasID3v2Tag())
            offerID3v2(result.picture, flac->ID3v2Tag());
    } else if (auto* vorbis = dynamic_cast<TagLib::Ogg::Vorbis::File*>(file)) {
        offerXiph(result.picture, vorbis->tag());
    } else if (auto* opus = dynamic_cast<TagLib::Ogg::Opus::File*>(file)) {
        offerXiph(result.picture, opus->tag());
    } else if (auto* speex = dynamic_cast<TagLib::Ogg::Speex::File*>(file)) {
        offerXiph(result.picture, speex->tag());
    } else if (auto* oggFlac = dynamic_cast<TagLib::Ogg::FLAC::File*>(file)) {
        offerXiph(result.picture, oggFlac->tag());
    } else if (auto* mp4 = dynamic_cast<TagLib::MP4::File*>(file)) {
        if (auto* tag = mp4->tag()) {
            if (tag->contains("covr")) {
                for (const auto& cover : tag->item("covr").toCoverArtList())
                    result.picture.offer(cover.data(), true);
            }
            if (tag->contains("stik"))
                result.mediaType = mp4MediaKind(tag->item("stik").toByte());
            if (!result.mediaType && tag->contains("pcst") && tag->item("pcst").toBool())
                result.mediaType = MediaType::Podcast;
            extractMP4TempoAndKey(result, tag);
        }
    } else if (auto* wav = dynamic_cast<TagLib::RIFF::WAV::File*>(file)) {
        if (wav->hasID3v2Tag())
            offerID3v2(result.picture, wav->ID3v2Tag());
    } else if (auto* aiff = dynamic_cast<TagLib::RIFF::AIFF::File*>(file)) {
        if (aiff->hasID3v2Tag())
            offerID3v2(result.picture, aiff->tag());
    } else if (auto* asf = dynamic_cast<TagLib::ASF::File*>(file)) {
        if (auto* tag = asf->tag(); tag != nullptr && tag->contains("WM/Picture")) {
            for (const auto& attribute : tag->attribute("WM/Picture")) {
                const auto picture = attribute.toPicture();
                if (picture.isValid())
                    result.picture.offer(picture.picture(), picture.type() == TagLib::ASF::Picture::FrontCover);
            }
        }
        if (auto* tag = asf->tag())
            extractASFTempoAndKey(result, tag);
    } else if (auto* wavPack = dynamic_cast<TagLib::WavPack::File*>(file)) {
        if (wavPack->hasAPETag())
            offerAPE(result.picture, wavPack->APETag());
    } else if (auto* ape = dynamic_cast<TagLib::APE::File*>(file)) {
        if (ape->hasAPETag())
            offerAPE(result.picture, ape->APETag());
    } else if (auto* mpc = dynamic_cast<TagLib::MPC::File*>(file)) {
        if (mpc->hasAPETag())
            offerAPE(result.picture, mpc->APETag());
    }
    return result;
}

MediaType mediaTypeFromGenre(const std::string& genre, MediaType fallback) {
    if (equalsIgnoringCase(genre, "podcast") || equalsIgnoringCase(genre, "podcasts"))
        return MediaType::Podcast;
    if (equalsIgnoringCase(genre, "audiobook") || equalsIgnoringCase(genre, "audiobooks") ||
        equalsIgnoringCase(genre, "audio book"))
        return MediaType::AudioBook;
    return fallback;
}

} // namespace

std::int64_t TagReader::beatsPerMinuteFromText(std::string_view text) {
    std::size_t at = 0;
    while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at])) != 0)
        ++at;
    std::int64_t whole = 0;
    std::size_t digits = 0;
    for (; at < text.size() && std::isdigit(static_cast<unsigned char>(text[at])) != 0; ++at, ++digits) {
        whole = whole * 10 + (text[at] - '0');
        if (whole > kMaximumBeatsPerMinute)
            return 0;
    }
    if (digits == 0)
        return 0;
    // Some taggers write a decimal comma ("127,95").
    if (at + 1 < text.size() && (text[at] == '.' || text[at] == ',') &&
        std::isdigit(static_cast<unsigned char>(text[at + 1])) != 0 && text[at + 1] >= '5')
        ++whole;
    return whole <= kMaximumBeatsPerMinute ? whole : 0;
}

bool TagReader::isAudioFile(const std::filesystem::path& path) {
    const std::string extension = lowerExtension(path);
    return std::find(kAudioExtensions.begin(), kAudioExtensions.end(), extension) != kAudioExtensions.end();
}

Expected<TagReader::Track> TagReader::read(const std::filesystem::path& path) {
    installDebugListener();
    TagLib::FileRef reference(path.c_str(), true, TagLib::AudioProperties::Average);
    if (reference.isNull()) {
        // TagLib does not say why; an open of our own does when the file is the cause.
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0)
            return systemError(errno);
        ::close(fd);
        return Error(ErrorKind::InvalidData, "not a valid audio file of its kind");
    }

    // TagLib accepts a file with a valid header but no audio (an empty MP3, a WAV without its
    // data); it is nothing anyone could play.
    const TagLib::AudioProperties* properties = reference.audioProperties();
    if (properties == nullptr || (properties->sampleRate() <= 0 && properties->lengthInMilliseconds() <= 0)) {
        return Error(ErrorKind::InvalidData, "no audio found in it");
    }

    Track track;
    const std::string extension = lowerExtension(path);
    if (extension == "m4b")
        track.mediaType = MediaType::AudioBook;
    else if (extension == "m4v")
        track.mediaType = MediaType::Movie;

    std::string genre;
    if (const TagLib::Tag* tag = reference.tag()) {
        track.title = trimmed(tag->title());
        track.artist = trimmed(tag->artist());
        track.albumTitle = trimmed(tag->album());
        genre = trimmed(tag->genre());
    }
    if (track.title.empty())
        track.title = path.stem().string();
    track.duration = std::max(0, properties->lengthInMilliseconds()) / 1000.0;

    Extracted extracted = extractFormatSpecific(reference.file());
    // The common names cover ID3v2 (TBPM, TKEY, TXXX:KEY), Xiph comments and APE tags as
    // written, and RIFF INFO; MP4 and ASF keep theirs elsewhere.
    const TagLib::PropertyMap tagFields = reference.file()->properties();
    const std::string tempo = extracted.tempo.empty() ? firstProperty(tagFields, {"BPM", "TEMPO"}) : extracted.tempo;
    track.beatsPerMinute = beatsPerMinuteFromText(tempo);
    track.initialKey = cutAtCharacter(
        extracted.key.empty() ? firstProperty(tagFields, {"INITIALKEY", "KEY", "INITIAL KEY"}) : extracted.key,
        kMaximumKeyBytes);
    // A kind the file states outright counts before one guessed from the genre.
    track.mediaType = extracted.mediaType ? *extracted.mediaType : mediaTypeFromGenre(genre, track.mediaType);
    const TagLib::ByteVector& picture = extracted.picture.data;
    if (picture.size() > kMaximumArtworkBytes) {
        log::debug(kLogComponent, path.string() + ": picture of " + std::to_string(picture.size()) + " bytes left out");
    } else if (!picture.isEmpty()) {
        track.artwork.emplace(reinterpret_cast<const std::uint8_t*>(picture.data()),
                              reinterpret_cast<const std::uint8_t*>(picture.data()) + picture.size());
    }
    return track;
}

} // namespace vexo::media
