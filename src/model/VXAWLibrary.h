#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/Range.h"
#include "platform/media/MediaPlaylist.h"
#include "platform/plist/Value.h"
#include "platform/runtime/Observable.h"

namespace vexo::runtime {
class Operation;
class OperationQueue;
} // namespace vexo::runtime
namespace vexo::transport {
class MMWormhole;
}

// The watch-side library, in two unrelated halves:
//
// - a mirror of the phone application's library browser, fed by "libraryItems" messages
//   (visibility, section, navigation level, item count and the items page by page), and the
//   sender of library actions, which travel through the shared file "libraryAction";
// - the local media library's playlists, loaded on a private operation queue the first time
//   they are read and again whenever the media library changes.
//
// Every property setter notifies its observers, also when the value is unchanged. Main thread
// only, but for the query-building step of a playlist load. Must be owned by a shared_ptr
// (playlist loads refer to it weakly).
namespace vexo::model {

class VXAWLibrary : public runtime::Observable, public std::enable_shared_from_this<VXAWLibrary> {
public:
    // The key paths of the observable properties, as observers spell them.
    static constexpr std::string_view kSectionNameKeyPath = "sectionName";
    static constexpr std::string_view kSectionAvailableKeyPath = "sectionAvailable";
    static constexpr std::string_view kNumberOfItemsKeyPath = "numberOfItems";
    static constexpr std::string_view kRangeOfItemsKeyPath = "rangeOfItems";
    static constexpr std::string_view kItemsKeyPath = "items";
    static constexpr std::string_view kNavigationLevelKeyPath = "navigationLevel";
    static constexpr std::string_view kVisibleKeyPath = "visible";
    static constexpr std::string_view kPlaylistsKeyPath = "playlists";
    static constexpr std::string_view kWormholeKeyPath = "wormhole";

    using Playlists = std::vector<media::MediaPlaylist>;

    // Starts the transport (which applies the stored "libraryItems"), then marks the section
    // available whatever that message said, creates the queue, and has the media library
    // announce its changes. No playlist load starts here.
    VXAWLibrary();
    ~VXAWLibrary() override;

    void setupWormhole();
    void teardownWormhole();

    // Stores {"action": code[, "params": params]} as the message "libraryAction" and wakes the
    // phone with an empty dictionary. Action 0 then empties the mirrored list.
    void sendActionMessage(std::int64_t action, const plist::Value& params = plist::Value());

    // Applies a "libraryItems" message (also one that is nothing); other identifiers change
    // nothing. A page joins the items only when it starts the list (location 0) or continues
    // it exactly (location equal to the number of items held); any other page is dropped.
    void processMessageWithIdentifier(std::string_view identifier, const plist::Value& contents);

    // The local playlists: nothing while the first load runs (and for good when there is no
    // media library), a list once a load has finished, empty when the library has no
    // playlists. The first read starts the first load; later loads come only from
    // media-library changes.
    const std::optional<Playlists>& playlists();
    void setPlaylists(std::optional<Playlists> playlists) {
        setAndNotify(kPlaylistsKeyPath, m_playlists, std::move(playlists));
    }

    // Cancels the load in flight, if any, and starts a new one.
    void loadPlaylists();
    void mediaLibraryDidChange();

    const std::optional<std::string>& sectionName() const { return m_sectionName; }
    void setSectionName(std::optional<std::string> name) {
        setAndNotify(kSectionNameKeyPath, m_sectionName, std::move(name));
    }
    bool isSectionAvailable() const { return m_sectionAvailable; }
    void setSectionAvailable(bool available) { setAndNotify(kSectionAvailableKeyPath, m_sectionAvailable, available); }
    std::int64_t numberOfItems() const { return m_numberOfItems; }
    void setNumberOfItems(std::int64_t count) { setAndNotify(kNumberOfItemsKeyPath, m_numberOfItems, count); }
    Range rangeOfItems() const { return m_rangeOfItems; }
    void setRangeOfItems(Range range) { setAndNotify(kRangeOfItemsKeyPath, m_rangeOfItems, range); }
    // The phone's items so far, as received.
    const std::optional<plist::Array>& items() const { return m_items; }
    void setItems(std::optional<plist::Array> items) { setAndNotify(kItemsKeyPath, m_items, std::move(items)); }
    std::int64_t navigationLevel() const { return m_navigationLevel; }
    void setNavigationLevel(std::int64_t level) { setAndNotify(kNavigationLevelKeyPath, m_navigationLevel, level); }
    bool isVisible() const { return m_visible; }
    void setVisible(bool visible) { setAndNotify(kVisibleKeyPath, m_visible, visible); }
    const std::shared_ptr<transport::MMWormhole>& wormhole() const { return m_wormhole; }
    void setWormhole(std::shared_ptr<transport::MMWormhole> wormhole) {
        setAndNotify(kWormholeKeyPath, m_wormhole, std::move(wormhole));
    }
    const std::shared_ptr<runtime::OperationQueue>& queue() const { return m_queue; }
    // The most recently started load; kept after it finishes.
    const std::shared_ptr<runtime::Operation>& playlistsLoadOperation() const { return m_playlistsLoadOperation; }

    [[nodiscard]] std::any valueForKey(std::string_view key) const override;

private:
    std::optional<std::string> m_sectionName;
    bool m_sectionAvailable = false;
    std::int64_t m_numberOfItems = 0;
    Range m_rangeOfItems;
    std::optional<plist::Array> m_items;
    std::int64_t m_navigationLevel = 0;
    bool m_visible = false;
    std::optional<Playlists> m_playlists;
    std::shared_ptr<transport::MMWormhole> m_wormhole;
    std::shared_ptr<runtime::OperationQueue> m_queue;
    std::shared_ptr<runtime::Operation> m_playlistsLoadOperation;
};

} // namespace vexo::model
