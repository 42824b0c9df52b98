// The command that compares how the last one came out, and what came of it.
#pragma once

#include "script/ending.h"
#include "script/line_reader.h"

namespace pelmsim {

class session;

inline constexpr const char* expect_arguments =
    "[within MS] (ok | error [CODE [TEXT]] | no-answer [WHY] | unheard [WHY] | status STATUS | "
    "xml XML | contains TEXT | lacks TEXT | recovery PLUGIN ok|error|no-answer|unheard ... | "
    "[not] pulled [by PLUGIN] [old] [PATH] | [not] pushed [by PLUGIN] [PATH [XML]] | "
    "[not] deployed [by PLUGIN] [add|delete|update [PATH [XML]] | save | copy | override] | "
    "[not] notification [TEXT] | [not] log [TEXT] | [not] warning [TEXT])";

ending expect(session& on, line_reader& words);

} // namespace pelmsim
