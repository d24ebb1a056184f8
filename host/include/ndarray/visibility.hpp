#pragma once

// Everything the host runtime offers to the library and to hosts crosses a
// shared-object boundary, so it keeps default visibility even when a client
// builds with -fvisibility=hidden.
#define QZHOST_API __attribute__((visibility("default")))
