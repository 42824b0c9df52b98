// What a plugin has registered for one path.
#pragma once

#include "model/path.h"

#include <conf_def.h>

namespace pelmsim {

enum class serves { config, status, operate };

struct registration {
    serves kind;
    data_path path;
    int priority; // of a configuration path
    u32_t callback;
};

} // namespace pelmsim
