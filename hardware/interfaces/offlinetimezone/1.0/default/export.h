// Marks what the library shows; exports.map lists the same names.
#pragma once

#define OFFLINETZ_EXPORT __attribute__((visibility("default")))
