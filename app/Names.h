#pragma once

/// The names by which the parts of the application, its settings and the desktop know each other.
namespace Names {

/// Of the application, on the session bus and for its settings.
inline constexpr const char* application = "com.quenbark.kelpmoray";

// Keys of settings.
inline constexpr const char* doNotCodesign = "prefDoNotCodesign";
inline constexpr const char* selectedIdentity = "prefSelectedIdentityInfoDictionary";
inline constexpr const char* version = "prefAppVersion";
inline constexpr const char* target = "prefDNPTarget";

// Notifications.
inline constexpr const char* newSearchPath = "newsearchpath";
inline constexpr const char* windowDidResize = "NSWindowDidResizeNotification";

} // namespace Names
