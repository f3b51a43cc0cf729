// Search contexts: walks over a handle's sections (the header section left
// out) and over the fields of one section, one name per call.
#include <cstdint>
#include <string>

#include "vq_config/conf_state.h"

namespace vq::conf {
namespace {

// A walk in progress. A removal anywhere in the handle ends it, since the
// element it stands on may be the one removed.
struct SearchContext {
    Handle *h = nullptr;
    bool over_fields = false;
    std::string section;  // the walked section, for field walks
    bool started = false;
    uint64_t removals = 0;  // the handle's count when the walk began
    NamedList<Section>::iterator section_pos;
    NamedList<Field>::iterator field_pos;
};

}  // namespace
}  // namespace vq::conf

using namespace vq::conf;

extern "C" {

VQ_API int conf_init_section_search_context(void *vh, void **context) {
    if (context == nullptr) {
        return raise_params("conf_init_section_search_context", "context");
    }
    return with_handle(vh, "conf_init_section_search_context", __LINE__, [context](Handle &h) {
        auto *c = new SearchContext();
        c->h = &h;
        c->removals = h.removals;
        *context = c;
        return 1;
    });
}

VQ_API int conf_init_field_search_context(void *vh, const char *section, void **context) {
    if (section == nullptr || context == nullptr) {
        return raise_params("conf_init_field_search_context", section == nullptr ? "section" : "context");
    }
    return with_handle(vh, "conf_init_field_search_context", __LINE__, [section, context](Handle &h) {
        if (h.sections.find(section) == nullptr) {
            return missing_section(section);
        }
        auto *c = new SearchContext();
        c->h = &h;
        c->removals = h.removals;
        c->over_fields = true;
        c->section = section;
        *context = c;
        return 1;
    });
}

VQ_API int conf_get_next_section(void *context, char **name) {
    auto *c = static_cast<SearchContext *>(context);
    if (c == nullptr || c->over_fields || name == nullptr) {
        return raise_params("conf_get_next_section", name == nullptr ? "name" : "context");
    }
    Guard guard(c->h, __LINE__);
    if (c->removals != c->h->removals) {
        return 0;
    }
    NamedList<Section> &list = c->h->sections;
    if (!c->started) {
        c->section_pos = list.begin();
        c->started = true;
    } else if (c->section_pos != list.end()) {
        ++c->section_pos;
    }
    while (c->section_pos != list.end() && c->section_pos->name == kHeaderSection) {
        ++c->section_pos;
    }
    if (c->section_pos == list.end()) {
        return 0;
    }
    *name = c->section_pos->name.data();
    return 1;
}

VQ_API int conf_get_next_field(void *context, char **name) {
    auto *c = static_cast<SearchContext *>(context);
    if (c == nullptr || !c->over_fields || name == nullptr) {
        return raise_params("conf_get_next_field", name == nullptr ? "name" : "context");
    }
    Guard guard(c->h, __LINE__);
    Section *s = c->h->sections.find(c->section);
    if (s == nullptr || c->removals != c->h->removals) {
        return 0;
    }
    if (!c->started) {
        c->field_pos = s->fields.begin();
        c->started = true;
    } else if (c->field_pos != s->fields.end()) {
        ++c->field_pos;
    }
    if (c->field_pos == s->fields.end()) {
        return 0;
    }
    *name = c->field_pos->name.data();
    return 1;
}

VQ_API void conf_free_search_context(void *context) { delete static_cast<SearchContext *>(context); }

}  // extern "C"
