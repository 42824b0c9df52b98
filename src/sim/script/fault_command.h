// The commands by which something goes wrong on purpose.
#pragma once

#include "script/ending.h"
#include "script/line_reader.h"

namespace pelmsim {

class session;

inline constexpr const char* fault_arguments =
    "off | (delay MS | closed|deaf|restart [MS] | error CODE TEXT | "
    "hang-up-after|hang-up-before|hang-up-within|joined|nothing|own-id|wrong-id) "
    "[answer|request [METHOD]] [to PLUGIN] [times N]";

ending plant_fault(session& on, line_reader& words);
ending plant_chaos(session& on, line_reader& words);

} // namespace pelmsim
