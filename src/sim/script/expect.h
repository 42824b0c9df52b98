// The command that compares how the last one came out.
#pragma once

#include "script/ending.h"
#include "script/line_reader.h"

namespace pelmsim {

class session;

inline constexpr const char* expect_arguments =
    "ok | error [CODE [TEXT]] | no-answer [WHY] | unheard [WHY] | status STATUS | "
    "xml XML | contains TEXT | lacks TEXT | recovery PLUGIN ok|error|no-answer|unheard ...";

ending expect(session& on, line_reader& words);

} // namespace pelmsim
