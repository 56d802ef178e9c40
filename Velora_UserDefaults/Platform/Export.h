#pragma once

/// Marks what the shared library exports. Everything else stays hidden.
#define VELORA_EXPORT __attribute__((visibility("default")))
