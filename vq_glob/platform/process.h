// The narrow OS interface, process part: included by platform.h.
#pragma once

#include <cstddef>
#include <cstdint>
