#pragma once

#include <cstdint>
#include <string_view>

// The wire format between the watch and the phone application: message identifiers,
// dictionary keys, user-notification action identifiers and action codes. Every protocol
// string of the program is spelled here and nowhere else.
//
// Watch to phone, deck and mixer actions travel as {"identifier": ..., "contents": {...}}
// handed to the phone application; library actions are written as the message
// "libraryAction" and the phone is then woken with an empty dictionary. Phone to watch,
// status messages are stored under the identifiers below; deck identifiers take the deck
// number appended with "%ld" (turntableStatus1, turntableSongInfo2, turntableSongInfo0 for
// the glance).
namespace vexo::model {

// The application group whose container both processes share.
inline constexpr std::string_view VXAWWormholeApplicationGroupIdentifier = "group.com.vexo.remote";
// The subdirectory of the container that holds the message files.
inline constexpr std::string_view kWormholeMessageDirectory = "messages";

// Action envelope.
inline constexpr std::string_view VXAWMessageIdentifierKey = "identifier";
inline constexpr std::string_view VXAWMessageContentsKey = "contents";
// Plain keys of an action's contents (not exported by the phone application).
inline constexpr std::string_view kActionTurntableKey = "turntable";
inline constexpr std::string_view kActionCodeKey = "action";
inline constexpr std::string_view kActionParamsKey = "params";

// Message identifiers.
inline constexpr std::string_view VXAWTurntableActionMessageIdentifier = "turntableAction";
inline constexpr std::string_view VXAWMixerActionMessageIdentifier = "mixerAction";
inline constexpr std::string_view VXAWLibraryActionMessageIdentifier = "libraryAction";
inline constexpr std::string_view VXAWTurntableStatusMessageIdentifier = "turntableStatus";
inline constexpr std::string_view VXAWTurntableSongInfoMessageIdentifier = "turntableSongInfo";
inline constexpr std::string_view VXAWMixerStatusMessageIdentifier = "mixerStatus";
inline constexpr std::string_view VXAWLibraryItemsMessageIdentifier = "libraryItems";

// Song dictionary.
inline constexpr std::string_view VXAWSongNameKey = "name";
inline constexpr std::string_view VXAWSongArtistKey = "artist";
inline constexpr std::string_view VXAWSongDurationKey = "duration";
inline constexpr std::string_view VXAWSongIdentifierKey = "songID";
inline constexpr std::string_view VXAWSongArtworkImageKey = "artworkImage";

// Deck status and song information.
inline constexpr std::string_view VXAWTurntablePlayingKey = "playing";
inline constexpr std::string_view VXAWTurntableCurrentTimeKey = "currentTime";
inline constexpr std::string_view VXAWTurntableCurrentDisplayTimeKey = "currentDisplayTime";
inline constexpr std::string_view VXAWTurntableCurrentSongKey = "currentSong";
inline constexpr std::string_view VXAWTurntableAutoLoopBeatIntervalKey = "autoLoopBeatInterval";
inline constexpr std::string_view VXAWTurntableLoopingKey = "looping";
inline constexpr std::string_view VXAWTurntableFxNameKey = "fxName";
inline constexpr std::string_view VXAWTurntableFxEnabledKey = "fxEnabled";
inline constexpr std::string_view VXAWTurntableFxLowPassEnabledKey = "fxLowPassEnabled";
inline constexpr std::string_view VXAWTurntableFxHighPassEnabledKey = "fxHighPassEnabled";
inline constexpr std::string_view VXAWTurntableBpmKey = "bpm";
inline constexpr std::string_view VXAWTurntableKeyKey = "key";

// Mixer status and mixer action parameters.
inline constexpr std::string_view VXAWMixerVolumeKey = "volume";
inline constexpr std::string_view VXAWMixerSyncActiveKey = "syncActive";
inline constexpr std::string_view VXAWMixerCrossfaderPositionKey = "crossfaderPosition";
inline constexpr std::string_view VXAWMixerAutomixActiveKey = "automixActive";
inline constexpr std::string_view VXAWMixerAvailableTransitionTypesKey = "availableTransitions";
inline constexpr std::string_view VXAWMixerTransitionTypeKey = "transitionType";
inline constexpr std::string_view VXAWMixerTransitionDurationKey = "transitionDuration";

// Library status and the load action's parameter.
inline constexpr std::string_view VXAWLibraryVisibleKey = "visible";
inline constexpr std::string_view VXAWLibrarySectionNameKey = "sectionName";
inline constexpr std::string_view VXAWLibrarySectionIsAvailableKey = "sectionIsAvailable";
inline constexpr std::string_view VXAWLibraryNavigationLevelKey = "navigationLevel";
inline constexpr std::string_view VXAWLibraryNumberOfItemsKey = "numberOfItems";
inline constexpr std::string_view VXAWLibraryRangeOfItemsKey = "rangeOfItems";
inline constexpr std::string_view VXAWLibraryItemsKey = "items";
inline constexpr std::string_view VXAWLibraryItemIDKey = "itemID";

// In-process notification that fans a local-notification action out to every page.
inline constexpr std::string_view VXAWDidReceiveUserNotificationNotification =
    "VXAWDidReceiveUserNotificationNotification";
// Action identifiers the phone application registers its notification actions with.
inline constexpr std::string_view VXTUserNotificationActionLoad = "VXTUserNotificationActionLoad";
inline constexpr std::string_view VXTUserNotificationActionAutomix = "VXTUserNotificationActionAutomix";

// Page length of the library and playlist lists.
inline constexpr std::int64_t VXAWLibraryDefaultItemPageSize = 10;

// Deck number the glance asks about.
inline constexpr std::int64_t kGlanceTurntableNumber = 0;

// Deck actions ("turntableAction"; the envelope carries the deck number). Code 7 is never sent.
enum VXAWTurntableAction : std::int64_t {
    VXAWTurntableActionPlay = 0,
    VXAWTurntableActionPause = 1,
    VXAWTurntableActionSkipForward = 2,
    VXAWTurntableActionSkipBackward = 3,
    VXAWTurntableActionNext = 4,
    VXAWTurntableActionPrevious = 5,
    VXAWTurntableActionLoadItem = 6,
    VXAWTurntableActionAutoLoopHalf = 8,
    VXAWTurntableActionAutoLoopDouble = 9,
    VXAWTurntableActionToggleLooping = 10,
    VXAWTurntableActionFxSelectNext = 11,
    VXAWTurntableActionFxSelectPrevious = 12,
    VXAWTurntableActionToggleFx = 13,
    VXAWTurntableActionToggleFxLowPass = 14,
    VXAWTurntableActionToggleFxHighPass = 15,
    VXAWTurntableActionRequestStatus = 16,
    VXAWTurntableActionGlanceRefresh = 17,
};

// Mixer actions ("mixerAction").
enum VXAWMixerAction : std::int64_t {
    VXAWMixerActionSync = 0,
    VXAWMixerActionSetVolume = 1,
    VXAWMixerActionSetCrossfaderPosition = 2,
    VXAWMixerActionTransitionLeft = 3,
    VXAWMixerActionTransitionMiddle = 4,
    VXAWMixerActionTransitionRight = 5,
    VXAWMixerActionAutomixOn = 6,
    VXAWMixerActionAutomixOff = 7,
    VXAWMixerActionTransitionDurationNext = 8,
    VXAWMixerActionTransitionDurationPrevious = 9,
    VXAWMixerActionSetTransitionType = 10,
    VXAWMixerActionRequestStatus = 11,
};

// Library actions ("libraryAction", through the shared file). Codes 1 and 2 are never sent.
enum VXAWLibraryAction : std::int64_t {
    VXAWLibraryActionResetItems = 0,
    VXAWLibraryActionBack = 3,
    VXAWLibraryActionPreviousTab = 4,
    VXAWLibraryActionNextTab = 5,
};

} // namespace vexo::model
