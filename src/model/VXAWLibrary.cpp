#include "model/VXAWLibrary.h"

#include "model/Environment.h"
#include "model/VXAWProtocol.h"
#include "platform/media/MediaLibrary.h"
#include "platform/runtime/NotificationCenter.h"
#include "platform/runtime/OperationQueue.h"
#include "platform/runtime/RunLoop.h"
#include "transport/MMWormhole.h"

namespace vexo::model {
namespace {

// Every audio and every video media type.
constexpr std::uint64_t kAnyMediaType = 0xFFFF;

// A playlist query as it is handed from the operation queue to the main loop: built in the
// background, read on the main loop.
struct PlaylistsQuery {
    std::shared_ptr<media::MediaLibrary> library;
    std::uint64_t mediaTypeFilter = 0;

    // Nothing when there is no media library to ask; a library without playlists answers
    // with an empty list, which is how the library screen knows to say so.
    std::optional<VXAWLibrary::Playlists> collections() const {
        if (!library)
            return std::nullopt;
        return library->playlists(static_cast<media::MediaType>(mediaTypeFilter));
    }
};

} // namespace

VXAWLibrary::VXAWLibrary() {
    setupWormhole();
    // After the stored message: at start the section always reads as available.
    setSectionAvailable(true);
    m_queue = std::make_shared<runtime::OperationQueue>();
    if (const auto& library = environment().mediaLibrary)
        library->beginGeneratingLibraryChangeNotifications(environment().applicationGroupIdentifier);
    runtime::NotificationCenter::defaultCenter().addObserver(
        this, [this](const runtime::Notification&) { mediaLibraryDidChange(); },
        media::MediaLibrary::kDidChangeNotification);
}

VXAWLibrary::~VXAWLibrary() {
    teardownWormhole();
    runtime::NotificationCenter::defaultCenter().removeObserver(this);
    if (m_playlistsLoadOperation)
        m_playlistsLoadOperation->cancel();
}

void VXAWLibrary::setupWormhole() {
    setWormhole(std::make_shared<transport::MMWormhole>(
        environment().applicationGroupIdentifier, std::string(kWormholeMessageDirectory), environment().mainLoop));
    // An action left over from an earlier run must never reach the phone again.
    m_wormhole->clearMessageContentsForIdentifier(VXAWLibraryActionMessageIdentifier);
    m_wormhole->listenForMessageWithIdentifier(VXAWLibraryItemsMessageIdentifier, [this](const plist::Value& message) {
        processMessageWithIdentifier(VXAWLibraryItemsMessageIdentifier, message);
    });
    processMessageWithIdentifier(VXAWLibraryItemsMessageIdentifier,
                                 m_wormhole->messageWithIdentifier(VXAWLibraryItemsMessageIdentifier));
}

void VXAWLibrary::teardownWormhole() {
    if (!m_wormhole)
        return;
    m_wormhole->stopListeningForMessageWithIdentifier(VXAWLibraryItemsMessageIdentifier);
    setWormhole(nullptr);
}

void VXAWLibrary::sendActionMessage(std::int64_t action, const plist::Value& params) {
    plist::Dictionary message{{std::string(kActionCodeKey), plist::Value(action)}};
    if (!params.isNull())
        message.emplace(kActionParamsKey, params);
    // Library actions go through the shared file; the opened dictionary only wakes the phone.
    if (m_wormhole)
        m_wormhole->passMessageObject(plist::Value(std::move(message)), VXAWLibraryActionMessageIdentifier);
    openParentApplication(plist::Value(plist::Dictionary{}));
    if (action == VXAWLibraryActionResetItems) {
        setNumberOfItems(0);
        setRangeOfItems(Range{});
        setItems(std::nullopt);
    }
}

void VXAWLibrary::processMessageWithIdentifier(std::string_view identifier, const plist::Value& contents) {
    if (identifier != VXAWLibraryItemsMessageIdentifier)
        return;
    setVisible(contents[VXAWLibraryVisibleKey].boolValue());
    setSectionName(contents[VXAWLibrarySectionNameKey].stringValue());
    setSectionAvailable(contents[VXAWLibrarySectionIsAvailableKey].boolValue());
    setRangeOfItems(rangeFromString(contents[VXAWLibraryRangeOfItemsKey].stringValue().value_or("")));
    setNumberOfItems(contents[VXAWLibraryNumberOfItemsKey].integerValue());
    setNavigationLevel(contents[VXAWLibraryNavigationLevelKey].integerValue());

    std::optional<plist::Array> page = contents[VXAWLibraryItemsKey].arrayValue();
    const std::uint64_t location = m_rangeOfItems.location;
    const std::uint64_t held = m_items ? m_items->size() : 0;
    if (location == 0) {
        setItems(std::move(page));
    } else if (location == held) {
        plist::Array joined = m_items.value_or(plist::Array{});
        if (page)
            joined.insert(joined.end(), std::make_move_iterator(page->begin()), std::make_move_iterator(page->end()));
        setItems(std::move(joined));
    }
}

const std::optional<VXAWLibrary::Playlists>& VXAWLibrary::playlists() {
    if (!m_playlists && !m_playlistsLoadOperation)
        loadPlaylists();
    return m_playlists;
}

void VXAWLibrary::loadPlaylists() {
    if (m_playlistsLoadOperation)
        m_playlistsLoadOperation->cancel();

    // The body refers to the library and to its own operation weakly, so a load never keeps
    // either alive; the operation is known only once it exists.
    auto self = std::make_shared<std::weak_ptr<runtime::Operation>>();
    runtime::RunLoop* mainLoop = environment().mainLoop;
    auto operation = runtime::BlockOperation::blockOperationWithBlock(
        [weakLibrary = weak_from_this(), self, mainLoop, mediaLibrary = environment().mediaLibrary] {
            PlaylistsQuery query{mediaLibrary, kAnyMediaType};
            const auto operation = self->lock();
            if (!operation || operation->isCancelled() || mainLoop == nullptr)
                return;
            mainLoop->post([weakLibrary, query = std::move(query)] {
                if (const auto library = weakLibrary.lock())
                    library->setPlaylists(query.collections());
            });
        });
    *self = operation;
    m_playlistsLoadOperation = operation;
    m_queue->addOperation(operation);
}

void VXAWLibrary::mediaLibraryDidChange() {
    loadPlaylists();
}

std::any VXAWLibrary::valueForKey(std::string_view key) const {
    if (key == kSectionNameKeyPath)
        return m_sectionName;
    if (key == kSectionAvailableKeyPath)
        return m_sectionAvailable;
    if (key == kNumberOfItemsKeyPath)
        return m_numberOfItems;
    if (key == kRangeOfItemsKeyPath)
        return m_rangeOfItems;
    if (key == kItemsKeyPath)
        return m_items;
    if (key == kNavigationLevelKeyPath)
        return m_navigationLevel;
    if (key == kVisibleKeyPath)
        return m_visible;
    if (key == kPlaylistsKeyPath)
        return m_playlists;
    if (key == kWormholeKeyPath)
        return m_wormhole;
    return Observable::valueForKey(key);
}

} // namespace vexo::model
