#pragma once

/// The names by which the parts of the application and its settings know each other.
namespace Names {

// Keys of settings.
inline constexpr const char* doNotCodesign = "prefDoNotCodesign";
inline constexpr const char* selectedIdentity = "prefSelectedIdentityInfoDictionary";
inline constexpr const char* version = "prefAppVersion";
inline constexpr const char* target = "prefDNPTarget";
inline constexpr const char* windowFrame = "prefWindowFrame";
inline constexpr const char* panelFolder = "prefChoosePanelFolder";

// Notifications.
inline constexpr const char* newSearchPath = "newsearchpath";
inline constexpr const char* windowDidResize = "NSWindowDidResizeNotification";

} // namespace Names
