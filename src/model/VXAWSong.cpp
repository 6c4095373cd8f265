#include "model/VXAWSong.h"

#include "model/VXAWProtocol.h"

namespace vexo::model {
namespace {

// The string comparison is made with the current value as the receiver: a receiver that is
// nothing answers no, so nothing never equals anything, not even nothing.
bool mergeString(std::optional<std::string>& property, const plist::Value& value) {
    std::optional<std::string> incoming = value.stringValue();
    if (property && incoming && *property == *incoming)
        return false;
    property = std::move(incoming);
    return true;
}

} // namespace

VXAWSong::VXAWSong(const plist::Value& dictionary) {
    updateMetadata(dictionary);
}

bool VXAWSong::updateMetadata(const plist::Value& dictionary) {
    bool changed = false;
    changed |= mergeString(m_identifier, dictionary[VXAWSongIdentifierKey]);
    changed |= mergeString(m_name, dictionary[VXAWSongNameKey]);
    changed |= mergeString(m_artist, dictionary[VXAWSongArtistKey]);

    const std::int64_t duration = dictionary[VXAWSongDurationKey].integerValue();
    if (duration != m_duration) {
        m_duration = duration;
        changed = true;
    }

    if (!m_artworkImageData) {
        if (const plist::Data* artwork = dictionary[VXAWSongArtworkImageKey].asData()) {
            m_artworkImageData = *artwork;
            changed = true;
        }
    }
    return changed;
}

} // namespace vexo::model
