// Load and unload hooks.  All load-time work is done by the static
// initialisers of the kernels' own files, so these have nothing left to do.

#include "qzimages/qzimages.hpp"

extern "C" {
void PXInitialize_libqzimages() {}
void PXTerminate_libqzimages() {}
}
