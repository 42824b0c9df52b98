// The files of templates/, which are a project that works as it stands, and how another project's
// names are put in.
//
// A line with a mark in it, in whatever comment its language has, is not written:
//     [[each config]]   the lines from here to [[end]] are written for each path of that kind
//     [[any config]]    they are written if there is such a path
// In them, and elsewhere, stand the names of the sample plugin, in place of which others are put.
#pragma once

#include "new_names.h"

namespace pelmsim {

struct template_file {
    std::string name;
    std::string text;
};

// Those of the present API, and those that the older one, and C++, have in place of them.
std::vector<template_file> plugin_templates();
std::vector<template_file> legacy_templates();
std::vector<template_file> cxx_templates();

// A file with other names in it, and in its own name. The text is empty when there is nothing to
// say.
template_file filled(const template_file& file, const project_names& names);

} // namespace pelmsim
