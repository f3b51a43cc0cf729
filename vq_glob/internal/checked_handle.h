// The entry check of a tagged handle: the handle as its own type when it
// carries the expected tag, else a PARAMS error naming the function and the
// argument. Callers that treat a null handle in a way of their own test for
// null before they call this.
#pragma once

#include "internal/handle_tag.h"
#include "internal/raise.h"

namespace vq::tag {

template <typename T>
const T *checked(const void *handle, Kind kind, raise::Report report, const char *function,
                 const char *argument) {
    const T *object = as<T>(handle, kind);
    if (object == nullptr) {
        raise::params(report, function, argument);
    }
    return object;
}

template <typename T>
T *checked(void *handle, Kind kind, raise::Report report, const char *function, const char *argument) {
    return const_cast<T *>(checked<T>(static_cast<const void *>(handle), kind, report, function, argument));
}

}  // namespace vq::tag
