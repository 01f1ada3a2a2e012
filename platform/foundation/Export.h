#pragma once

// BRL_EXPORT marks what the shared library shows; everything else is hidden.
#define BRL_EXPORT __attribute__((visibility("default")))
