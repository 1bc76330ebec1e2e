#pragma once
// The library is built with hidden visibility; what carries this is its API.
#define MERID_API __attribute__((visibility("default")))
