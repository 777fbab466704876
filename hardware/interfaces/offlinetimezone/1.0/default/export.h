// Marks the functions and classes that the library exports. exports.map lists the same names.
#pragma once

#define OFFLINETZ_EXPORT __attribute__((visibility("default")))
