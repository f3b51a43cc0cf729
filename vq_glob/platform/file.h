// The narrow OS interface, file part: included by platform.h.
#pragma once

#include <cstddef>
#include <cstdint>
