// String lists: NULL-terminated arrays of malloc'ed texts that C callers walk
// by index and release with free() as readily as with ml_free.
//
// Everything here allocates with the C library (malloc/realloc/free), never
// with new, so a list can cross between this library and its callers. Growth
// copies the text before it touches the array, and the array is only replaced
// once realloc succeeded, so that a failure leaves the caller's list exactly
// as it was.
#include "vq_glob/mlist.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "internal/ascii.h"
#include "internal/raise.h"
#include "vq_glob/dbg.h"
#include "vq_glob/err.h"

namespace vq::string_list {
namespace {

using raise::Report;

constexpr const char *kModule = "vq_memory";
// Normal progress lines (a duplicate skipped, a list printed) use the FLOW
// channel; misuse by the caller is traced on the ERROR channel.
constexpr int32_t kFlowChannel = DBG_CHANNEL_FLOW;
constexpr int32_t kErrorChannel = DBG_CHANNEL_ERROR;

int32_t count(char **list) {
    int32_t n = 0;
    if (list != nullptr) {
        while (list[n] != nullptr) {
            ++n;
        }
    }
    return n;
}

char *copy_text(const char *text) {
    size_t size = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(std::malloc(size));
    if (copy != nullptr) {
        std::memcpy(copy, text, size);
    }
    return copy;
}

char **new_array(int32_t entries) {
    return static_cast<char **>(std::calloc(static_cast<size_t>(entries), sizeof(char *)));
}

// Index of the first text equal to text, or -1. Without case, only ASCII
// letters fold: the list behaves the same whatever the caller's locale.
int32_t index_of(char **list, const char *text, bool case_sensitive) {
    if (list == nullptr) {
        return -1;
    }
    std::string_view wanted(text);
    for (int32_t i = 0; list[i] != nullptr; ++i) {
        if (case_sensitive ? std::strcmp(list[i], text) == 0 : ascii::equal_nocase(list[i], wanted)) {
            return i;
        }
    }
    return -1;
}

// Frees entry i and closes the gap, moving the terminator down with the rest.
void remove_at(char **list, int32_t i) {
    std::free(list[i]);
    for (; list[i] != nullptr; ++i) {
        list[i] = list[i + 1];
    }
}

// ml_add fails silently; the other appends explain their failures.
enum class Failures { reported, quiet };

// Appends a copy of text: the copy is made first, so that a failing realloc
// leaves nothing half done.
int append(char ***list, const char *text, const char *function, Failures failures) {
    bool reported = failures == Failures::reported;
    if (list == nullptr || text == nullptr) {
        return reported ? raise::params(Report::add, function, list == nullptr ? "list" : "text") : 0;
    }
    char *copy = copy_text(text);
    if (copy == nullptr) {
        return reported ? raise::memory(Report::add, function, kModule, __LINE__) : 0;
    }
    int32_t n = count(*list);
    auto *grown = static_cast<char **>(std::realloc(*list, (static_cast<size_t>(n) + 2) * sizeof(char *)));
    if (grown == nullptr) {
        std::free(copy);
        return reported ? raise::memory(Report::add, function, kModule, __LINE__) : 0;
    }
    grown[n] = copy;
    grown[n + 1] = nullptr;
    *list = grown;
    return 1;
}

// A new list holding copies of the texts of source for which keep() holds;
// NULL (the partial copy freed) when memory runs out.
template <typename Keep>
char **copy_list(char **source, Keep keep) {
    char **result = new_array(count(source) + 1);
    if (result == nullptr) {
        return nullptr;
    }
    int32_t out = 0;
    for (int32_t i = 0; source != nullptr && source[i] != nullptr; ++i) {
        if (!keep(source[i])) {
            continue;
        }
        result[out] = copy_text(source[i]);
        if (result[out] == nullptr) {
            ml_free(result);
            return nullptr;
        }
        ++out;
    }
    return result;
}

bool all_kept(const char *) { return true; }

// Checks a find function's arguments, putting a PARAMS error on the stack.
bool lookup_arguments_valid(const char *function, const char *text, const void *out) {
    if (text == nullptr || out == nullptr) {
        raise::params(Report::add, function, text == nullptr ? "text" : "result");
        return false;
    }
    return true;
}

}  // namespace
}  // namespace vq::string_list

namespace sl = vq::string_list;
using vq::raise::Report;

extern "C" {

VQ_API int32_t ml_init(int32_t n, char ***list) {
    if (n < 0 || list == nullptr || n == INT32_MAX) {
        return 0;
    }
    char **array = sl::new_array(n + 1);
    if (array == nullptr) {
        return 0;
    }
    *list = array;
    return n + 1;
}

VQ_API int ml_init_list(int32_t n, char ***list) {
    if (n < 0 || list == nullptr || n == INT32_MAX) {
        return VQ_PARAMS(Report::add, list == nullptr ? "list" : "n");
    }
    if (ml_init(n, list) == 0) {
        return VQ_NO_MEMORY(Report::add, sl::kModule);
    }
    return 1;
}

VQ_API int ml_add(char ***list, const char *text) {
    return sl::append(list, text, "ml_add", sl::Failures::quiet);
}

VQ_API int ml_add_element(char ***list, const char *text) {
    return sl::append(list, text, "ml_add_element", sl::Failures::reported);
}

VQ_API int ml_add_element_ex(char ***list, const char *text, int32_t check_dup, int32_t case_sensitive) {
    bool can_search = list != nullptr && text != nullptr;
    if (check_dup != 0 && can_search && sl::index_of(*list, text, case_sensitive != 0) >= 0) {
        new_dbg_str(sl::kFlowChannel, "<-ml_add_element (), item exists.\n");
        return 1;
    }
    return sl::append(list, text, "ml_add_element_ex", sl::Failures::reported);
}

VQ_API int32_t ml_list_count(char **list) { return sl::count(list); }

VQ_API void ml_remove(char **list) {
    if (list != nullptr && list[0] != nullptr) {
        sl::remove_at(list, 0);
    }
}

VQ_API int ml_remove_item(char **list, const char *text, int32_t *found) {
    if (!sl::lookup_arguments_valid("ml_remove_item", text, found)) {
        return 0;
    }
    int32_t i = sl::index_of(list, text, true);
    *found = i >= 0 ? 1 : 0;
    if (i >= 0) {
        sl::remove_at(list, i);
    }
    return 1;
}

VQ_API int ml_find_item(char **list, const char *text, int32_t *found) {
    if (!sl::lookup_arguments_valid("ml_find_item", text, found)) {
        return 0;
    }
    *found = sl::index_of(list, text, true) >= 0 ? 1 : 0;
    return 1;
}

VQ_API int ml_find_insensitive_item(char **list, const char *text, int32_t *found) {
    if (!sl::lookup_arguments_valid("ml_find_insensitive_item", text, found)) {
        return 0;
    }
    *found = sl::index_of(list, text, false) >= 0 ? 1 : 0;
    return 1;
}

VQ_API int ml_find_index(char **list, const char *text, int32_t *index) {
    if (!sl::lookup_arguments_valid("ml_find_index", text, index)) {
        return 0;
    }
    *index = sl::index_of(list, text, true);
    return *index >= 0 ? 1 : 0;
}

VQ_API char **ml_diff(char **a, char **b) {
    auto only_in_a = [b](const char *text) { return *text != '\0' && sl::index_of(b, text, true) < 0; };
    char **result = sl::copy_list(a, only_in_a);
    if (result == nullptr) {
        VQ_NO_MEMORY(Report::add, sl::kModule);
    }
    return result;
}

VQ_API char **ml_dup(char **list) {
    char **result = sl::copy_list(list, sl::all_kept);
    if (result == nullptr) {
        VQ_NO_MEMORY(Report::add, sl::kModule);
    }
    return result;
}

VQ_API int ml_copy(char ***target, char **source) {
    if (target == nullptr) {
        return VQ_PARAMS(Report::add, "target");
    }
    char **result = sl::copy_list(source, sl::all_kept);
    if (result == nullptr) {
        return VQ_NO_MEMORY(Report::add, sl::kModule);
    }
    *target = result;
    return 1;
}

VQ_API void ml_print(char **list) {
    for (int32_t i = 0; list != nullptr && list[i] != nullptr; ++i) {
        new_dbg_str(sl::kFlowChannel, "ml_print:: %d - %s\n", static_cast<int>(i), list[i]);
    }
}

VQ_API void ml_free_list_items(char **list) {
    for (int32_t i = 0; list != nullptr && list[i] != nullptr; ++i) {
        std::free(list[i]);
        list[i] = nullptr;
    }
}

VQ_API void ml_free(char **list) {
    ml_free_list_items(list);
    std::free(list);
}

VQ_API int ml_get_last_item(char **list, char **text) {
    if (text == nullptr) {
        return VQ_PARAMS(Report::add, "text");
    }
    *text = nullptr;
    int32_t n = sl::count(list);
    if (n == 0) {
        return 0;
    }
    *text = sl::copy_text(list[n - 1]);
    if (*text == nullptr) {
        return VQ_NO_MEMORY(Report::add, sl::kModule);
    }
    return 1;
}

VQ_API int is_list_of_empty_strs(char **list, int32_t *is_empty) {
    if (list == nullptr) {
        new_dbg_str(sl::kErrorChannel, "is_list_of_empty_strs: NULL list");
        return VQ_PARAMS(Report::add, "list");
    }
    if (is_empty == nullptr) {
        new_dbg_str(sl::kErrorChannel, "is_list_of_empty_strs: NULL is_empty_strs_list");
        return VQ_PARAMS(Report::add, "is_empty");
    }
    *is_empty = 1;
    for (int32_t i = 0; list[i] != nullptr; ++i) {
        if (list[i][0] != '\0') {
            *is_empty = 0;
            break;
        }
    }
    return 1;
}

}  // extern "C"
