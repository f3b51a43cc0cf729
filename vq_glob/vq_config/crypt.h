// Enciphering of the values of encrypted fields: DES from the system's
// libcrypto, loaded at run time, and a printable block encoding of the
// cipher bytes.
#pragma once

#include <string>
#include <string_view>

#include "vq_config/conf_state.h"

namespace vq::conf {

// The key an encrypted field uses: its own, else its section's, else the
// handle's, else the built-in key.
std::string_view field_key(const Handle &h, const Section &s, const Field &f);

// out = plain enciphered under key, as printable text. 0 with
// ERR_CNF_ENCRYPT naming what (a field name) when it cannot be done, libcrypto
// missing included.
int encrypt_text(std::string_view key, const char *what, std::string_view plain, std::string &out);
// The reverse; 0 with ERR_CNF_ENCRYPT for text that is not the cipher of
// anything under key (wrong key, damaged text).
int decrypt_text(std::string_view key, const char *what, std::string_view text, std::string &out);

}  // namespace vq::conf
