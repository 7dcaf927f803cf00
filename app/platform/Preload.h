#pragma once

/// Shortens the way to the first painted window: what it waits for longest is done beside other
/// work. Nothing but speed depends on it; where fonts are not configured by fontconfig it does
/// nothing.
namespace Preload {

/// Reads the font configuration on a thread of its own, while the application connects to the
/// display. To be called in main() before the QApplication is made.
void fontConfiguration();

/// Loads the desktop's font beside the building of the window, and spares its menu bar the icon of
/// a button for menus that do not fit: the two menus always do. To be called when the QApplication
/// is there, before any widget. Main thread.
void fontsAndStyle();

} // namespace Preload
