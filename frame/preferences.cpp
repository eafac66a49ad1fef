// Where relative configuration file names are taken: the platform's shared
// preferences directory, which deployments and tests may move.
#include <cstdlib>

#include "frame/frame_internal.h"

#ifndef KT_DEFAULT_PREFERENCES_DIR
#define KT_DEFAULT_PREFERENCES_DIR "/Library/Preferences"
#endif

namespace kt::frame {

const char* PreferencesDirectory() noexcept {
  const char* from_environment = std::getenv("KT_PREFERENCES_DIR");
  if (from_environment != nullptr && from_environment[0] != '\0') return from_environment;
  return KT_DEFAULT_PREFERENCES_DIR;
}

}  // namespace kt::frame
