#pragma once

#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "platform/watchkit/ImageData.h"

// What an image slot of an interface object shows: nothing, an asset by name, or image
// data from the image store. A copyable value.
namespace vexo::watchkit {

class ImageContent {
public:
    // Nothing.
    ImageContent() = default;

    [[nodiscard]] static ImageContent named(std::string name);
    // REQUIRES: `data` is not nullptr.
    [[nodiscard]] static ImageContent withData(std::shared_ptr<const ImageData> data);

    [[nodiscard]] bool isEmpty() const { return !m_name && !m_data; }
    // The asset name, or nullptr when the slot shows data or nothing.
    [[nodiscard]] const std::string* name() const { return m_name ? &*m_name : nullptr; }
    // The image data, or nullptr when the slot shows an asset or nothing.
    [[nodiscard]] const std::shared_ptr<const ImageData>& data() const { return m_data; }

    // null, {"name": "<asset>"} or {"data": "<id>", "bytes": n, "type": "image/png",
    // "width": w, "height": h}.
    [[nodiscard]] nlohmann::json toJson() const;

    // Data compares by identity: the store gives equal bytes one object.
    friend bool operator==(const ImageContent& a, const ImageContent& b) {
        return a.m_name == b.m_name && a.m_data == b.m_data;
    }

private:
    std::optional<std::string> m_name;
    std::shared_ptr<const ImageData> m_data;
};

} // namespace vexo::watchkit
