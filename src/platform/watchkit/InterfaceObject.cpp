#include "platform/watchkit/InterfaceObject.h"

#include "platform/log/Log.h"
#include "platform/watchkit/ImageStore.h"
#include "platform/watchkit/Screen.h"
#include "platform/watchkit/SnapshotFormat.h"

namespace vexo::watchkit {

namespace {

const ObjectLayout& nilLayout() {
    static const ObjectLayout layout;
    return layout;
}

} // namespace

InterfaceObject::InterfaceObject(ObjectKind kind, ObjectInit init)
    : m_kind(kind),
      m_screen(init.screen),
      m_layout(init.screen && init.layout ? init.layout : &nilLayout()),
      m_id(init.screen ? std::move(init.id) : std::string()),
      m_nil(init.screen == nullptr),
      m_hidden(m_layout->hidden) {}

InterfaceObject::~InterfaceObject() = default;

void InterfaceObject::setHidden(bool hidden) {
    if (!acceptChange("setHidden") || m_hidden == hidden)
        return;
    m_hidden = hidden;
    didChange();
}

nlohmann::json InterfaceObject::toJson(const FrameMap& frames, bool withChildren) const {
    nlohmann::json out = {{"id", m_id}, {"kind", kindName(m_kind)}};
    if (m_layout->outlet)
        out["outlet"] = *m_layout->outlet;
    if (auto frame = frames.find(this); frame != frames.end())
        out["frame"] = snapshot::rect(frame->second);
    out["hidden"] = m_hidden;
    if (m_layout->action)
        out["action"] = *m_layout->action;
    if (m_layout->segue)
        out["segue"] = {{"identifier", m_layout->segue->identifier}, {"destination", m_layout->segue->destination}};
    if (!m_layout->style.empty())
        out["style"] = m_layout->style;
    if (m_layout->accessibilityLabel)
        out["accessibilityLabel"] = snapshot::text(localized(*m_layout->accessibilityLabel));
    writeState(out, frames);
    if (!m_children.empty()) {
        nlohmann::json children = nlohmann::json::array();
        for (const auto& child : m_children)
            children.push_back(withChildren ? child->toJson(frames, true) : nlohmann::json(child->identifier()));
        out["children"] = std::move(children);
    }
    return out;
}

void InterfaceObject::appendChild(std::shared_ptr<InterfaceObject> child) {
    m_children.push_back(std::move(child));
}

void InterfaceObject::detach() {
    m_screen = nullptr;
    for (const auto& child : m_children)
        child->detach();
}

bool InterfaceObject::acceptChange(std::string_view operation) const {
    if (!m_nil)
        return true;
    if (log::enabled(log::Level::Debug))
        log::debug("watchkit", "message to nil: " + std::string(kindName(m_kind)) + " " + std::string(operation));
    return false;
}

void InterfaceObject::didChange() {
    if (m_screen)
        m_screen->objectDidChange(*this);
}

bool InterfaceObject::assignImageNamed(ImageContent& slot, std::optional<std::string> name) {
    ImageContent content = name ? ImageContent::named(std::move(*name)) : ImageContent();
    if (content == slot)
        return false;
    slot = std::move(content);
    return true;
}

bool InterfaceObject::assignImageData(ImageContent& slot, std::optional<std::vector<std::uint8_t>> data) {
    ImageContent content;
    if (data) {
        ImageStore* store = m_screen ? m_screen->images() : nullptr;
        std::shared_ptr<const ImageData> image;
        if (store) {
            image = store->add(std::move(*data));
        } else {
            // A detached object has no store; it keeps the bytes so that it still tells
            // what was set.
            auto own = std::make_shared<ImageData>();
            own->bytes = std::move(*data);
            image = std::move(own);
        }
        if (!image)
            return false;
        content = ImageContent::withData(std::move(image));
    }
    if (content == slot)
        return false;
    slot = std::move(content);
    return true;
}

std::optional<std::string> InterfaceObject::layoutText() const {
    if (!m_layout->text)
        return std::nullopt;
    return localized(*m_layout->text);
}

std::string InterfaceObject::localized(const std::string& text) const {
    return m_screen ? m_screen->localized(text) : text;
}

} // namespace vexo::watchkit
