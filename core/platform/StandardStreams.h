#pragma once

/// Opens whichever of the three standard streams the process was started without, for nothing to be
/// read and written: else the next file or connection would take its place, and get what we print.
/// Call first of all.
void occupyStandardStreams();
