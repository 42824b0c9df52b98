// What events are about, in the words that all readers of the journal use.
#pragma once

#include "journal/event.h"

namespace pelmsim {

// Of a request: "publish /a mod", "pull /a (old)".
std::string subject_of(const event& what);

// Of what could not be read: "12 bytes that begin no frame".
std::string defect_of(const event& what);

// "12 ms", "3.2 s".
std::string time_in_words(moment::duration time);

// What went wrong on purpose, and with what: "delay 500: answer to pull".
std::string fault_of(const event& what);

} // namespace pelmsim
