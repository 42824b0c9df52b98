// Why a wait was in vain.
#pragma once

#include <string>

namespace pelmsim {

class session;

// What those are doing that the wait was for, as far as it can be seen, in lines.
std::string explain_wait(session& on, const std::string& what, const std::string& name);

} // namespace pelmsim
