#pragma once

/// Lets the font configuration be read on a thread of its own while the application connects to the
/// display: it is the longest part of a start that need not wait for anything. The first call in
/// main(). Where fonts are not configured by fontconfig it does nothing.
void preloadFonts();
