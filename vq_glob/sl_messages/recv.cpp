// Receiving a typed message: parts are read one at a time and checked before
// anything is allocated for them; attachments go to temporary files or to
// their names on the target, the body parts are joined and the joined body's
// signature is checked before the handle reads it.
//
// The order of parts within a message, everything else refused as malformed:
//   message    := { attachment } body
//   attachment := [ info ] data
//   info       := { 6 } 7
//   data       := { 2 } 3  |  { 4 } 5
//   body       := { 1 } 0
// A restart part (8) may come anywhere and drops the message so far.
#include <cstdint>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "internal/raise.h"
#include "internal/trace.h"
#include "platform/platform.h"
#include "sl_messages/handle.h"
#include "vq_glob/hash.h"
#include "sl_messages/target_name.h"
#include "sl_messages/transfer.h"
#include "vq_glob/err.h"
#include "vq_glob/gf.h"
#include "vq_glob/sl_net.h"
#include "vq_glob/slm.h"

namespace vq::slm {
namespace {

using raise::Report;

constexpr const char *kTempPrefix = "slm";

bool malformed(const char *what) {
    err_add_error(ERR_MSG_BADMSG, what);
    return false;
}

bool out_of_memory(int line) { return no_memory("slm_recv", line) != 0; }

// Raises code with its arguments and keeps its text as the entry's reason.
template <typename... Args>
void record_failure(Attachment &entry, uint32_t code, Args... args) {
    err_add_error(code, args...);
    entry.written = false;
    try {
        entry.error_text = err_get_error_text(0);
    } catch (const std::bad_alloc &) {
        entry.error_text.clear();
    }
}

// One message on its way in.
class Receiver {
public:
    Receiver(Handle &h, void *session) : h_(h), session_(session) {}
    Receiver(const Receiver &) = delete;
    Receiver &operator=(const Receiver &) = delete;

    // Receives parts until a whole, signature-checked message is in the
    // handle. On failure the message's temporary files are gone and the
    // handle is empty.
    bool run() {
        for (;;) {
            PartHeader header;
            bool done = false;
            if (!receive_part(&header) || !dispatch(header, &done)) {
                drop_message();
                return false;
            }
            if (done) {
                return true;
            }
        }
    }

private:
    bool dispatch(const PartHeader &header, bool *done) {
        switch (header.indication) {
            case SLM_PART_RESTART:
                debug::trace_bit(debug::kChannelNetwork, "slm_recv : restart received, message dropped\n");
                drop_message();
                return true;
            case SLM_PART_ATT_INFO_MORE:
            case SLM_PART_ATT_INFO_LAST:
                return on_info_part(header);
            case SLM_PART_BODY_MORE:
            case SLM_PART_BODY_LAST:
                return on_body_part(header, done);
            default:
                return on_attachment_part(header);
        }
    }

    // Reads one header and the data behind it into the handle's receive buffer.
    bool receive_part(PartHeader *header) {
        unsigned char raw[SLM_PART_HEADER_SIZE];
        if (sl_net_recv(session_, raw, SLM_PART_HEADER_SIZE, nullptr) != 1) {
            err_add_error(ERR_MSG_RECV);
            return false;
        }
        *header = decode_part_header(raw);
        if (header->size_code != SLM_MSG_SIZE_CODE) {
            err_add_error(ERR_MSG_BADHEAD, static_cast<int>(header->size_code), "SLM_MSG_SIZE_CODE");
            return false;
        }
        if (header->last_code != SLM_LAST_MSG_CODE) {
            err_add_error(ERR_MSG_BADHEAD, static_cast<int>(header->last_code), "SLM_LAST_MSG_CODE");
            return false;
        }
        if (header->indication > SLM_PART_RESTART) {
            err_add_error(ERR_MSG_UNKTYP, static_cast<int>(header->indication));
            return false;
        }
        // The length is the peer's word: checked before anything is allocated.
        if (header->length > SLM_MAX_PART_SIZE) {
            err_add_error(ERR_MSG_TOOBIG, SLM_MAX_PART_SIZE, "part");
            return false;
        }
        try {
            h_.recv_buffer.resize(header->length);
        } catch (const std::bad_alloc &) {
            return out_of_memory(__LINE__);
        }
        if (header->length != 0 &&
            sl_net_recv(session_, h_.recv_buffer.data(), static_cast<int32_t>(header->length), nullptr) != 1) {
            err_add_error(ERR_MSG_RECV);
            return false;
        }
        return true;
    }

    // ---- Attachment information ----------------------------------------------------------

    bool on_info_part(const PartHeader &header) {
        if (current_) {
            return malformed("attachment information inside an attachment");
        }
        if (body_started_) {
            return malformed("attachment information inside the body");
        }
        if (pending_info_) {
            return malformed("attachment information without its attachment");
        }
        if (info_.size() + header.length > SLM_MAX_ATT_INFO_SIZE) {
            err_add_error(ERR_MSG_TOOBIG, SLM_MAX_ATT_INFO_SIZE, "attachment information");
            return false;
        }
        if (!append(info_)) {
            return false;
        }
        info_started_ = header.indication == SLM_PART_ATT_INFO_MORE;
        if (info_started_) {
            return true;
        }
        AttachmentInfo info;
        const bool parsed = parse_attachment_info(info_.data(), static_cast<uint32_t>(info_.size()), &info);
        info_.clear();
        if (!parsed) {
            return malformed("bad attachment information");
        }
        pending_info_ = std::move(info);
        return true;
    }

    // ---- Attachment data -----------------------------------------------------------------

    bool on_attachment_part(const PartHeader &header) {
        if (info_started_) {
            return malformed("attachment part inside attachment information");
        }
        if (body_started_) {
            return malformed("attachment part inside the body");
        }
        const bool binary = header.indication >= SLM_PART_BINARY_MORE;
        if (!current_) {
            if (!start_attachment(binary)) {
                return false;
            }
        } else if (current_->binary != binary) {
            return malformed(binary ? "binary part inside a text attachment" : "text part inside a binary attachment");
        }
        write_piece();
        if (header.indication == SLM_PART_TEXT_LAST || header.indication == SLM_PART_BINARY_LAST) {
            return finish_attachment();
        }
        return true;
    }

    // Takes the next entry and opens where its data goes: the name on the
    // target its information gave, or a new temporary file. A file that is
    // not to be written, or cannot be, leaves the entry unwritten with the
    // reason, and the data is received all the same.
    bool start_attachment(bool binary) {
        if (h_.attachments.size() >= static_cast<size_t>(SLM_MAX_ATTACHMENTS)) {
            err_add_error(ERR_MSG_TOOMANY, SLM_MAX_ATTACHMENTS);
            return false;
        }
        current_ = std::unique_ptr<Attachment>(new (std::nothrow) Attachment);
        if (!current_) {
            return out_of_memory(__LINE__);
        }
        current_->binary = binary;
        current_->written = true;
        try {
            if (pending_info_) {
                const AttachmentInfo info = std::move(*pending_info_);
                pending_info_.reset();
                return open_target(info);
            }
            return open_temp();
        } catch (const std::bad_alloc &) {
            return out_of_memory(__LINE__);
        }
    }

    bool open_target(const AttachmentInfo &info) {
        Attachment &entry = *current_;
        entry.has_target = true;
        entry.name_on_target = info.name_on_target;
        entry.replace = info.replace;
        entry.consider_times = info.has_unix_time || info.has_nt_time;
        entry.unix_time = info.unix_time;
        entry.nt_low = info.nt_low;
        entry.nt_high = info.nt_high;
        TargetDecision decision;
        if (!decide_target(h_, info, &decision)) {
            return false;
        }
        entry.file_name = decision.path;
        if (!decision.write) {
            entry.written = false;
            entry.error_text = decision.why_not;
            return true;
        }
        // Exclusive: the name was found free (or freed) just now, and a link
        // put there since is not followed.
        if (!file_.allocate() || gf_set_file_name(file_.get(), entry.file_name.c_str()) != 1 ||
            gf_set_file_open_flags(file_.get(), GF_WRITE | GF_CREATE | GF_EXCLUSIVE) != 1 ||
            gf_create_file(file_.get()) != 1) {
            file_.release();
            record_failure(entry, ERR_MSG_ATTCRE, entry.file_name.c_str());
            return true;
        }
        return true;
    }

    bool open_temp() {
        Attachment &entry = *current_;
        const char *directory = h_.has_temp_dir ? h_.temp_dir.c_str() : ".";
        char *name = nullptr;
        if (!file_.allocate() || gf_create_temp(file_.get(), directory, kTempPrefix) != 1 ||
            gf_get_file_name(file_.get(), &name) != 1 || name == nullptr) {
            file_.release();
            record_failure(entry, ERR_MSG_GETTEMP);
            return true;
        }
        entry.file_name = name;
        // Listed at once, so that a failure from here on deletes it.
        temp_files_.push_back(entry.file_name);
        return true;
    }

    // Writes the part just received, unless the entry is not being written.
    void write_piece() {
        if (h_.recv_buffer.empty()) {
            return;
        }
        current_->received_bytes += h_.recv_buffer.size();
        current_->received_crc = crc32_continue(current_->received_crc, h_.recv_buffer.data(), h_.recv_buffer.size());
        if (file_.get() < 0) {
            return;
        }
        if (gf_write_file(file_.get(), h_.recv_buffer.data(), static_cast<int32_t>(h_.recv_buffer.size())) != 1) {
            abandon_file();
            record_failure(*current_, ERR_MSG_ATTWR, current_->file_name.c_str());
        }
    }

    // Closes the file of the entry being written and removes what it holds.
    void abandon_file() {
        file_.release();
        plat_file_remove(current_->file_name.c_str());
    }

    bool finish_attachment() {
        Attachment &entry = *current_;
        if (file_.get() >= 0) {
            if (gf_close_file(file_.get()) != 1) {
                abandon_file();
                record_failure(entry, ERR_MSG_ATTWR, entry.file_name.c_str());
            }
            file_.release();
        }
        const auto number = static_cast<int>(h_.attachments.size());
        try {
            h_.attachments.push_back(std::move(current_));
        } catch (const std::bad_alloc &) {
            return out_of_memory(__LINE__);
        }
        debug::trace_bit(debug::kChannelNetwork, "saving <%s> as attachment %d\n",
                         h_.attachments.back()->file_name.c_str(), number);
        return true;
    }

    // ---- The body ------------------------------------------------------------------------

    bool on_body_part(const PartHeader &header, bool *done) {
        if (info_started_ || pending_info_) {
            return malformed("body part after attachment information");
        }
        if (current_) {
            return malformed("body part inside an attachment");
        }
        if (body_.size() + header.length > SLM_MAX_BODY_SIZE) {
            err_add_error(ERR_MSG_TOOBIG, SLM_MAX_BODY_SIZE, "body");
            return false;
        }
        if (!append(body_)) {
            return false;
        }
        body_started_ = true;
        if (header.indication == SLM_PART_BODY_MORE) {
            return true;
        }
        const auto size = static_cast<uint32_t>(body_.size());
        if (size < 4) {
            return malformed("body shorter than its signature");
        }
        if (!signature_matches(body_.data(), size)) {
            err_add_error(ERR_MSG_CRC);
            return false;
        }
        if (!adopt_body(h_, body_.data(), size, "slm_recv")) {
            return false;
        }
        *done = true;
        return true;
    }

    bool append(std::vector<unsigned char> &to) {
        try {
            to.insert(to.end(), h_.recv_buffer.begin(), h_.recv_buffer.end());
        } catch (const std::bad_alloc &) {
            return out_of_memory(__LINE__);
        }
        return true;
    }

    // ---- Giving up -----------------------------------------------------------------------

    // Forgets the message so far: its temporary files and a half-written
    // file on the target are deleted, the handle is emptied. Files finished
    // under their names on the target stay.
    void drop_message() {
        if (current_ && file_.get() >= 0) {
            abandon_file();
        }
        file_.release();
        for (const std::string &name : temp_files_) {
            plat_file_remove(name.c_str());
        }
        temp_files_.clear();
        current_.reset();
        pending_info_.reset();
        info_.clear();
        body_.clear();
        info_started_ = false;
        body_started_ = false;
        reset(h_);
    }

    Handle &h_;
    void *session_;
    std::vector<unsigned char> info_;
    bool info_started_ = false;
    std::optional<AttachmentInfo> pending_info_;
    std::unique_ptr<Attachment> current_;
    GfFile file_;  // open while the current entry's data is being written
    std::vector<std::string> temp_files_;
    std::vector<unsigned char> body_;
    bool body_started_ = false;
};

int receive(void *handle, void *session, int32_t *full_success, const char *function) {
    Handle *h = checked(handle, function, "handle");
    if (h == nullptr) {
        return 0;
    }
    if (session == nullptr) {
        return raise::params(Report::add, function, "session");
    }
    // A handle wrapping a caller's body takes a buffer of its own first, so
    // that emptying it below forgets that body too.
    if (!h->owns_buffer && !make_room(*h, 0, function)) {
        return 0;
    }
    reset(*h);
    Receiver receiver(*h, session);
    if (!receiver.run()) {
        return 0;
    }
    if (full_success != nullptr) {
        *full_success = 1;
        for (const auto &entry : h->attachments) {
            if (!entry->written) {
                *full_success = 0;
            }
        }
    }
    return 1;
}

}  // namespace
}  // namespace vq::slm

extern "C" {

VQ_API int slm_recv(void *handle, void *session) { return vq::slm::receive(handle, session, nullptr, __func__); }

VQ_API int slm_recv_with_success_indication(void *handle, void *session, int32_t *full_success) {
    if (full_success == nullptr) {
        return VQ_PARAMS(vq::raise::Report::add, "full_success");
    }
    return vq::slm::receive(handle, session, full_success, __func__);
}

}  // extern "C"
