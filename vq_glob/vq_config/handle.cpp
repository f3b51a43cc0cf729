// Configuration handles: allocation and settings, the structural edits of
// sections and fields, and the section dump. The module's two
// frames (the configuration state and the writer's record) live here too.
#include <cstdlib>
#include <new>
#include <string>

#include "vq_config/conf_state.h"
#include "vq_glob/gf.h"

namespace vq::frame {
constinit const Module kConfigModule = conf::ConfigFrame::module("conf");
constinit const Module kConfWriterModule = conf::WriterFrame::module("conf_write");
}  // namespace vq::frame

namespace vq::conf {

namespace {

int allocate(void **handle, bool use_cs, const char *function) {
    if (handle == nullptr) {
        return raise::params(Report::fresh, function, "handle");
    }
    auto *h = new (std::nothrow) Handle();  // stamped as a configuration handle
    if (h == nullptr) {
        *handle = nullptr;
        return raise::memory(Report::fresh, function, kModule, __LINE__);
    }
    h->use_cs = use_cs;
    if (use_cs) {
        plat_lock_init(&h->cs);
    }
    *handle = h;
    return 1;
}

}  // namespace
}  // namespace vq::conf

using namespace vq::conf;

extern "C" {

VQ_API int conf_allocate_handle(void **handle) { return allocate(handle, false, "conf_allocate_handle"); }

VQ_API int conf_allocate_handle_use_cs(void **handle) {
    return allocate(handle, true, "conf_allocate_handle_use_cs");
}

VQ_API int conf_clean_handle(void *vh) {
    return with_handle(vh, "conf_clean_handle", __LINE__, [](Handle &h) {
        h.sections.clear();
        ++h.removals;
        h.version = 0;
        h.version_taken = false;
        return 1;
    });
}

VQ_API int conf_free_handle(void **handle) {
    if (handle == nullptr) {
        return VQ_PARAMS(Report::fresh, "handle");
    }
    Handle *h = handle_of(*handle, "conf_free_handle");
    if (h == nullptr) {
        return 0;  // *handle is left as it was
    }
    if (h->use_cs) {
        plat_lock_destroy(&h->cs);
    }
    delete h;  // erases the tag, so that a later call with the stale pointer is refused
    *handle = nullptr;
    return 1;
}

VQ_API int conf_set_lock_use_on_handle(void *vh, int32_t on) {
    return with_handle(vh, "conf_set_lock_use_on_handle", __LINE__, [on](Handle &h) {
        h.lock_use = on != 0;
        vq::debug::trace_bit(kTraceBit, "conf_set_lock_use_on_handle() - %s\n", on != 0 ? "TRUE" : "FALSE");
        return 1;
    });
}

// The handle's critical section is re-entrant, so the holder's own calls on
// the handle enter it again without blocking.
VQ_API int conf_lock_handle(void *vh) {
    Handle *h = handle_of(vh, "conf_lock_handle");
    if (h == nullptr) {
        return 0;
    }
    if (h->use_cs) {
        plat_lock_enter(&h->cs);
    }
    return 1;
}

VQ_API int conf_unlock_handle(void *vh) {
    Handle *h = handle_of(vh, "conf_unlock_handle");
    if (h == nullptr) {
        return 0;
    }
    if (h->use_cs) {
        plat_lock_leave(&h->cs);
    }
    return 1;
}

VQ_API int conf_enable_write_with_temp(void *vh) {
    return with_handle(vh, "conf_enable_write_with_temp", __LINE__, [](Handle &h) {
        h.write_with_temp = true;
        return 1;
    });
}

VQ_API int conf_disable_write_with_temp(void *vh) {
    return with_handle(vh, "conf_disable_write_with_temp", __LINE__, [](Handle &h) {
        h.write_with_temp = false;
        return 1;
    });
}

VQ_API int conf_set_encryption_to_handle(void *vh, const char *key) {
    return with_handle(vh, "conf_set_encryption_to_handle", __LINE__, [key](Handle &h) {
        h.key_set = key != nullptr;
        h.key = key != nullptr ? key : "";
        return 1;
    });
}

VQ_API int conf_delete_lock_file(const char *file_name) {
    if (file_name == nullptr) {
        return VQ_PARAMS(Report::fresh, "file_name");
    }
    std::string lock = std::string(file_name) + ".lock";
    PlatFsStatus status;
    if (plat_fs_status(lock.c_str(), &status) != 0) {
        return 1;
    }
    return gf_unlock_file(lock.c_str());
}

VQ_API int conf_set_section(void *vh, const char *section) {
    if (section == nullptr) {
        return VQ_PARAMS(Report::fresh, "section");
    }
    return with_handle(vh, "conf_set_section", __LINE__, [section](Handle &h) {
        h.sections.find_or_append(section);
        return 1;
    });
}

VQ_API int conf_add_field_to_section(void *vh, const char *section, const char *field) {
    if (section == nullptr || field == nullptr) {
        return VQ_PARAMS(Report::fresh, section == nullptr ? "section" : "field");
    }
    return with_handle(vh, "conf_add_field_to_section", __LINE__, [section, field](Handle &h) {
        h.sections.find_or_append(section).fields.find_or_append(field);
        return 1;
    });
}

VQ_API int conf_rename_section(void *vh, const char *old_name, const char *new_name) {
    if (old_name == nullptr || new_name == nullptr) {
        return VQ_PARAMS(Report::fresh, old_name == nullptr ? "old_name" : "new_name");
    }
    return with_handle(vh, "conf_rename_section", __LINE__, [old_name, new_name](Handle &h) {
        vq::debug::trace_bit(kTraceBit, "conf_rename_section()  (%s) --> (%s)\n", old_name, new_name);
        if (h.sections.find(old_name) == nullptr) {
            return missing_section(old_name);
        }
        if (std::string_view(old_name) == new_name) {
            return 1;
        }
        if (h.sections.find(new_name) != nullptr) {
            err_set_error(ERR_CNF_GENERAL, "section name already in use:", new_name);
            return 0;
        }
        h.sections.rename(old_name, new_name);
        return 1;
    });
}

VQ_API int conf_remove_section(void *vh, const char *section) {
    if (section == nullptr) {
        return VQ_PARAMS(Report::fresh, "section");
    }
    return with_handle(vh, "conf_remove_section", __LINE__, [section](Handle &h) {
        if (!h.sections.remove(section)) {
            return missing_section(section);
        }
        ++h.removals;
        return 1;
    });
}

VQ_API int conf_remove_field(void *vh, const char *section, const char *field) {
    if (section == nullptr || field == nullptr) {
        return VQ_PARAMS(Report::fresh, section == nullptr ? "section" : "field");
    }
    return with_handle(vh, "conf_remove_field", __LINE__, [section, field](Handle &h) {
        Section *s = h.sections.find(section);
        if (s == nullptr) {
            return missing_section(section);
        }
        if (!s->fields.remove(field)) {
            err_set_error(ERR_CNF_FIND_820F, field);
            return 0;
        }
        ++h.removals;
        return 1;
    });
}

VQ_API int conf_dump_section(void *vh, const char *section) {
    if (section == nullptr) {
        return VQ_PARAMS(Report::fresh, "section");
    }
    return with_handle(vh, "conf_dump_section", __LINE__, [section](Handle &h) {
        Section *s = h.sections.find(section);
        if (s == nullptr) {
            return missing_section(section);
        }
        vq::debug::trace_bit(kTraceBit, "conf_dump_section() - [%s]\n", s->name().c_str());
        for (Field &f : s->fields) {
            if ((f.flags & kFlagEncrypted) != 0) {
                // An encrypted value never reaches the trace.
                vq::debug::trace_bit(kTraceBit, "  %s=%s\n", f.name().c_str(), "***password1****");
                continue;
            }
            switch (f.type) {
                case CONF_TYPE_INT:
                    vq::debug::trace_bit(kTraceBit, "  %s=%d\n", f.name().c_str(), static_cast<int>(f.number));
                    break;
                case CONF_TYPE_BOOL:
                    vq::debug::trace_bit(kTraceBit, "  %s=%s\n", f.name().c_str(),
                                         f.number != 0 ? "TRUE" : "FALSE");
                    break;
                case CONF_TYPE_ML_TEXT:
                    vq::debug::trace_bit(kTraceBit, "  %s=<%lu lines>\n", f.name().c_str(),
                                         static_cast<unsigned long>(f.peek().lines.size()));
                    break;
                case CONF_TYPE_ML_INT:
                case CONF_TYPE_ML_BOOL:
                    vq::debug::trace_bit(kTraceBit, "  %s=<%lu values>\n", f.name().c_str(),
                                         static_cast<unsigned long>(f.peek().numbers.size()));
                    break;
                case CONF_TYPE_BIG_INT:
                    vq::debug::trace_bit(kTraceBit, "  %s=%s\n", f.name().c_str(), f.peek().big.text().c_str());
                    break;
                default:
                    vq::debug::trace_bit(kTraceBit, "  %s=%s\n", f.name().c_str(), f.text().c_str());
                    break;
            }
        }
        return 1;
    });
}

}  // extern "C"
