#pragma once

/// Draws around check boxes, fields and lists outlines that stand out from the window, 3 : 1 at
/// least: those of the toolkit's own style hardly do, on a dark desktop least of all. The styles of
/// desktops are left as they are. Main thread, before there are windows.
void useClearOutlines();
