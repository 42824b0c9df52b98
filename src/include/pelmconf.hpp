/**
 * @file pelmconf.hpp
 * The library in C++17: callables that capture, objects that clean up after themselves, and errors
 * as exceptions or, with -fno-exceptions, as results. Header only, on the names that the library
 * exports.
 *
 * docs/cxx.md shows it beside C.
 */
#ifndef PELMCONF_HPP
#define PELMCONF_HPP

#include "pelmconf/agent.hpp"
#include "pelmconf/client_table.hpp"
#include "pelmconf/daemon.hpp"
#include "pelmconf/plugin.hpp"

#endif
