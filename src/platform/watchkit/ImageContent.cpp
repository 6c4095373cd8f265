#include "platform/watchkit/ImageContent.h"

#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

ImageContent ImageContent::named(std::string name) {
    ImageContent content;
    content.m_name = std::move(name);
    return content;
}

ImageContent ImageContent::withData(std::shared_ptr<const ImageData> data) {
    ImageContent content;
    content.m_data = std::move(data);
    return content;
}

nlohmann::json ImageContent::toJson() const {
    if (m_name)
        return {{"name", snapshot::text(m_name)}};
    if (m_data) {
        return {{"data", m_data->id},
                {"bytes", m_data->bytes.size()},
                {"type", m_data->mediaType},
                {"width", m_data->width},
                {"height", m_data->height}};
    }
    return nullptr;
}

} // namespace vexo::watchkit
