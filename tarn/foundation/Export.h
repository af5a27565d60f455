#pragma once

/// Marks what libtarn.so and libtarnhost.so export; everything else stays hidden.
#define TARN_API __attribute__((visibility("default")))
