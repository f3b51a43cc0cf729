// Search contexts: walks over a handle's sections (the header section left
// out) and over the fields of one section, one name per call.
#include <cstdint>
#include <string>
#include <type_traits>

#include "vq_config/conf_state.h"

namespace vq::conf {
namespace {

// The kind of the search contexts handed out here.
// (Held here until the tag table lists it beside Kind::config.)
constexpr tag::Kind kSearchKind = tag::Kind::config_search;

// A walk in progress; its address is the context the callers hold, so the
// tag comes first. A removal anywhere in the handle ends it, since the
// element it stands on may be the one removed.
struct SearchContext {
    tag::HandleTag tag{kSearchKind};
    Handle *h = nullptr;
    bool over_fields = false;
    std::string section;  // the walked section, for field walks
    bool started = false;
    uint64_t removals = 0;  // the handle's count when the walk began
    NamedList<Section>::iterator section_pos;
    NamedList<Field>::iterator field_pos;
};

static_assert(std::is_standard_layout_v<SearchContext>, "the tag must sit at the context's address");

// The walk behind context when it is a live context of the wanted sort
// (over fields or over sections) on a live handle; else null with PARAMS
// naming name or context.
SearchContext *walk_of(void *context, bool over_fields, char **name, const char *function) {
    if (name == nullptr) {
        raise::params(Report::fresh, function, "name");
        return nullptr;
    }
    auto *c = tag::checked<SearchContext>(context, kSearchKind, Report::fresh, function, "context");
    if (c != nullptr && (c->over_fields != over_fields || !tag::is(c->h, tag::Kind::config))) {
        raise::params(Report::fresh, function, "context");
        return nullptr;
    }
    return c;
}

}  // namespace
}  // namespace vq::conf

using namespace vq::conf;

extern "C" {

VQ_API int conf_init_section_search_context(void *vh, void **context) {
    if (context == nullptr) {
        return VQ_PARAMS(Report::fresh, "context");
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
        return VQ_PARAMS(Report::fresh, section == nullptr ? "section" : "context");
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
    SearchContext *c = walk_of(context, false, name, "conf_get_next_section");
    if (c == nullptr) {
        return 0;
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
    while (c->section_pos != list.end() && c->section_pos->name() == kHeaderSection) {
        ++c->section_pos;
    }
    if (c->section_pos == list.end()) {
        return 0;
    }
    *name = const_cast<char *>(c->section_pos->name().c_str());
    return 1;
}

VQ_API int conf_get_next_field(void *context, char **name) {
    SearchContext *c = walk_of(context, true, name, "conf_get_next_field");
    if (c == nullptr) {
        return 0;
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
    *name = const_cast<char *>(c->field_pos->name().c_str());
    return 1;
}

VQ_API void conf_free_search_context(void *context) {
    if (context == nullptr) {
        return;
    }
    // Deleting erases the tag, so that a second free is refused as well.
    delete vq::tag::checked<SearchContext>(context, kSearchKind, Report::fresh, "conf_free_search_context",
                                           "context");
}

}  // extern "C"
