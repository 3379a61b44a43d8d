#pragma once

/// Marks what a platform library offers to others; everything else in it stays hidden.
#define KIVO_PUBLIC __attribute__((visibility("default")))
