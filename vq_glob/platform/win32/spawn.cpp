// Win32 backend, child-process part: logging a user on, starting a child
// with CreateProcessW or, under another user, CreateProcessAsUserW with a
// primary token while the thread impersonates the user, waiting for it,
// terminating and resuming it.
//
// Included by relative path so that a program can compile this source
// without the library's include path (see spawn.h).
#include "../spawn.h"

#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

namespace {

HANDLE native(PlatHandle handle) { return reinterpret_cast<HANDLE>(handle); }

PlatHandle portable(HANDLE handle) { return reinterpret_cast<PlatHandle>(handle); }

int32_t system_error() { return static_cast<int32_t>(GetLastError()); }

bool is_handle(HANDLE handle) { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }

// Closes a handle when the scope ends.
class OwnedHandle {
public:
    OwnedHandle() = default;
    ~OwnedHandle() { reset(); }
    OwnedHandle(const OwnedHandle &) = delete;
    OwnedHandle &operator=(const OwnedHandle &) = delete;

    HANDLE get() const { return handle_; }
    HANDLE *out() {
        reset();
        return &handle_;
    }
    void reset() {
        if (is_handle(handle_)) {
            CloseHandle(handle_);
        }
        handle_ = nullptr;
    }

private:
    HANDLE handle_ = nullptr;
};

// UTF-8 to UTF-16: 0, or the conversion's error (a NUL inside the text is
// refused, as the system would cut the text there).
int32_t to_wide(const std::string &text, std::wstring *out) {
    out->clear();
    if (text.find('\0') != std::string::npos) {
        return ERROR_INVALID_PARAMETER;
    }
    if (text.empty()) {
        return 0;
    }
    int size = static_cast<int>(text.size());
    int n = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
    if (n <= 0) {
        return system_error();
    }
    out->resize(static_cast<size_t>(n));
    if (MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, out->data(), n) != n) {
        return system_error();
    }
    return 0;
}

// ---- Logon ---------------------------------------------------------------------

// LogonUserA as a batch job and, when that is refused, as a network logon;
// each failure is kept for the caller's trace.
int32_t log_on(const PlatIdentity &identity, HANDLE *token, PlatLogonErrors *errors) {
    if (LogonUserA(identity.user, identity.domain, identity.password, LOGON32_LOGON_BATCH,
                   LOGON32_PROVIDER_DEFAULT, token)) {
        return 0;
    }
    errors->batch = system_error();
    if (LogonUserA(identity.user, identity.domain, identity.password, LOGON32_LOGON_NETWORK,
                   LOGON32_PROVIDER_DEFAULT, token)) {
        return 0;
    }
    errors->network = system_error();
    return errors->network;
}

// Whether user (with no domain or the local one) is the caller's own user,
// for whom no logon is needed.
bool is_own_user(const PlatIdentity &identity) {
    if (identity.domain != nullptr && *identity.domain != '\0' && std::string(identity.domain) != ".") {
        return false;
    }
    char own[257];
    DWORD size = sizeof own;
    return GetUserNameA(own, &size) && lstrcmpiA(own, identity.user) == 0;
}

// The primary token a child under identity is created with, or none when
// the caller's own identity serves.
int32_t user_token(const PlatIdentity &identity, OwnedHandle *primary, PlatLogonErrors *errors,
                   PlatSpawnStage *stage) {
    if (identity.user == nullptr || (identity.password == nullptr && is_own_user(identity))) {
        return 0;
    }
    OwnedHandle logon;
    if (int32_t error = log_on(identity, logon.out(), errors); error != 0) {
        *stage = PlatSpawnStage::authenticate;
        return error;
    }
    if (!DuplicateTokenEx(logon.get(), MAXIMUM_ALLOWED, nullptr, SecurityImpersonation, TokenPrimary,
                          primary->out())) {
        *stage = PlatSpawnStage::identity;
        return system_error();
    }
    return 0;
}

// ---- Command line and environment -------------------------------------------

// One argument quoted so that CommandLineToArgvW and the C runtime read it
// back unchanged: backslashes are literal except before a quote, where they
// and the quote are escaped.
void append_quoted(std::wstring *line, const std::wstring &argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        *line += argument;
        return;
    }
    *line += L'"';
    size_t backslashes = 0;
    for (wchar_t c : argument) {
        if (c == L'\\') {
            ++backslashes;
            continue;
        }
        if (c == L'"') {
            line->append(backslashes * 2 + 1, L'\\');
        } else {
            line->append(backslashes, L'\\');
        }
        backslashes = 0;
        *line += c;
    }
    line->append(backslashes * 2, L'\\');
    *line += L'"';
}

int32_t command_line(const PlatSpawnRequest &request, std::wstring *line) {
    if (request.command_line != nullptr) {
        return to_wide(request.command_line, line);
    }
    std::wstring wide;
    if (int32_t error = to_wide(request.image, &wide); error != 0) {
        return error;
    }
    // The program name is read up to the next quote without escapes, and a
    // file name holds no quotes.
    *line = L"\"" + wide + L"\"";
    for (const std::string &argument : request.arguments) {
        if (int32_t error = to_wide(argument, &wide); error != 0) {
            return error;
        }
        *line += L' ';
        append_quoted(line, wide);
    }
    return 0;
}

// The name part of "NAME=value"; names of the hidden per-drive variables
// start with '=' themselves.
std::wstring variable_name(const std::wstring &entry) {
    size_t equals = entry.find(L'=', 1);
    return entry.substr(0, equals);
}

void set_variable(std::vector<std::wstring> *environment, const std::wstring &entry) {
    const std::wstring name = variable_name(entry);
    for (std::wstring &present : *environment) {
        if (_wcsicmp(variable_name(present).c_str(), name.c_str()) == 0) {
            present = entry;
            return;
        }
    }
    environment->push_back(entry);
}

// The caller's environment with the request's entries over it, as a block
// of NUL-terminated entries ending in an empty one.
int32_t environment_block(const PlatSpawnRequest &request, std::wstring *block) {
    std::vector<std::wstring> environment;
    if (wchar_t *strings = GetEnvironmentStringsW()) {
        for (const wchar_t *entry = strings; *entry != L'\0'; entry += std::wcslen(entry) + 1) {
            environment.emplace_back(entry);
        }
        FreeEnvironmentStringsW(strings);
    }
    for (const std::string &entry : request.environment) {
        size_t equals = entry.find('=');
        std::wstring wide;
        if (equals == std::string::npos || equals == 0) {
            return ERROR_INVALID_PARAMETER;
        }
        if (int32_t error = to_wide(entry, &wide); error != 0) {
            return error;
        }
        set_variable(&environment, wide);
    }
    block->clear();
    for (const std::wstring &entry : environment) {
        *block += entry;
        *block += L'\0';
    }
    *block += L'\0';
    return 0;
}

int32_t check_directory(const std::wstring &directory) {
    DWORD attributes = GetFileAttributesW(directory.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return system_error();
    }
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? 0 : ERROR_DIRECTORY;
}

// ---- Handles the child inherits ---------------------------------------------

// Makes the listed handles inheritable for the time of the creation and
// limits the child to them; their earlier flags come back afterwards.
class InheritedHandles {
public:
    ~InheritedHandles() {
        for (size_t i = 0; i < handles_.size(); ++i) {
            SetHandleInformation(handles_[i], HANDLE_FLAG_INHERIT, flags_[i]);
        }
        if (attributes_ != nullptr) {
            DeleteProcThreadAttributeList(attributes_);
        }
    }

    int32_t add(HANDLE handle) {
        if (!is_handle(handle)) {
            return ERROR_INVALID_HANDLE;
        }
        for (HANDLE present : handles_) {
            if (present == handle) {
                return 0;
            }
        }
        DWORD flags = 0;
        if (!GetHandleInformation(handle, &flags) || !SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT)) {
            return system_error();
        }
        handles_.push_back(handle);
        flags_.push_back(flags & HANDLE_FLAG_INHERIT);
        return 0;
    }

    bool empty() const { return handles_.empty(); }

    // The attribute list naming the handles, for STARTUPINFOEXW.
    int32_t attribute_list(LPPROC_THREAD_ATTRIBUTE_LIST *list) {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        storage_.resize(size);
        auto *attributes = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(storage_.data());
        if (!InitializeProcThreadAttributeList(attributes, 1, 0, &size)) {
            return system_error();
        }
        attributes_ = attributes;
        if (!UpdateProcThreadAttribute(attributes, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles_.data(),
                                       handles_.size() * sizeof(HANDLE), nullptr, nullptr)) {
            return system_error();
        }
        *list = attributes;
        return 0;
    }

private:
    std::vector<HANDLE> handles_;
    std::vector<DWORD> flags_;
    std::vector<unsigned char> storage_;
    LPPROC_THREAD_ATTRIBUTE_LIST attributes_ = nullptr;
};

HANDLE chosen_or_own(PlatHandle chosen, DWORD own) {
    return chosen != kPlatNoHandle ? native(chosen) : GetStdHandle(own);
}

// Fills the standard handles of startup and the handles the child inherits.
// The handles the caller chose must reach the child; the caller's own may be
// console handles, which cannot be inherited and reach a console child
// anyway.
int32_t plan_handles(const PlatSpawnRequest &request, STARTUPINFOEXW *startup, InheritedHandles *inherited) {
    for (PlatHandle chosen : {request.std_output, request.std_error}) {
        if (chosen != kPlatNoHandle) {
            if (int32_t failure = inherited->add(native(chosen)); failure != 0) {
                return failure;
            }
        }
    }
    HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
    HANDLE output = chosen_or_own(request.std_output, STD_OUTPUT_HANDLE);
    HANDLE error = chosen_or_own(request.std_error, STD_ERROR_HANDLE);
    for (HANDLE own : {input, output, error}) {
        if (is_handle(own)) {
            inherited->add(own);
        }
    }
    for (PlatHandle handle : request.inherited) {
        if (int32_t failure = inherited->add(native(handle)); failure != 0) {
            return failure;
        }
    }
    startup->StartupInfo.dwFlags |= STARTF_USESTDHANDLES;
    startup->StartupInfo.hStdInput = input;
    startup->StartupInfo.hStdOutput = output;
    startup->StartupInfo.hStdError = error;
    if (inherited->empty()) {
        return 0;
    }
    return inherited->attribute_list(&startup->lpAttributeList);
}

// ---- Creation ------------------------------------------------------------------

struct Creation {
    std::wstring line;
    std::wstring environment;
    std::wstring directory;
    std::wstring desktop;
    bool has_directory = false;
    STARTUPINFOEXW startup{};
    DWORD flags = 0;
};

int32_t plan_creation(const PlatSpawnRequest &request, Creation *creation, InheritedHandles *inherited,
                      PlatSpawnStage *stage) {
    *stage = PlatSpawnStage::create;
    if (request.image == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    int32_t error = command_line(request, &creation->line);
    if (error == 0) {
        error = environment_block(request, &creation->environment);
    }
    if (error == 0 && request.desktop != nullptr) {
        error = to_wide(request.desktop, &creation->desktop);
    }
    if (error == 0) {
        creation->startup.StartupInfo.cb = sizeof creation->startup;
        creation->startup.StartupInfo.lpDesktop = request.desktop != nullptr ? creation->desktop.data() : nullptr;
        error = plan_handles(request, &creation->startup, inherited);
    }
    if (error != 0) {
        return error;
    }
    creation->flags = request.creation_flags | CREATE_UNICODE_ENVIRONMENT |
                      (request.suspended ? CREATE_SUSPENDED : 0) |
                      (creation->startup.lpAttributeList != nullptr ? EXTENDED_STARTUPINFO_PRESENT : 0);
    if (request.working_directory != nullptr) {
        *stage = PlatSpawnStage::working_directory;
        error = to_wide(request.working_directory, &creation->directory);
        if (error == 0) {
            error = check_directory(creation->directory);
        }
        creation->has_directory = true;
    }
    return error;
}

int32_t create(Creation &creation, HANDLE token, PROCESS_INFORMATION *process) {
    const wchar_t *directory = creation.has_directory ? creation.directory.c_str() : nullptr;
    BOOL inherit = creation.startup.lpAttributeList != nullptr;
    BOOL created;
    if (token != nullptr) {
        created = CreateProcessAsUserW(token, nullptr, creation.line.data(), nullptr, nullptr, inherit, creation.flags,
                                       creation.environment.data(), directory, &creation.startup.StartupInfo,
                                       process);
    } else {
        created = CreateProcessW(nullptr, creation.line.data(), nullptr, nullptr, inherit, creation.flags,
                                 creation.environment.data(), directory, &creation.startup.StartupInfo, process);
    }
    return created ? 0 : system_error();
}

// Creates the child as the token's user: the thread impersonates the user
// while the child is set up and is itself again afterwards. A thread that
// cannot go back must not keep running a child it may not own.
int32_t create_as(Creation &creation, HANDLE token, PROCESS_INFORMATION *process, PlatSpawnStage *stage) {
    if (!ImpersonateLoggedOnUser(token)) {
        *stage = PlatSpawnStage::identity;
        return system_error();
    }
    int32_t error = create(creation, token, process);
    if (!RevertToSelf()) {
        int32_t revert_error = system_error();
        if (error == 0) {
            TerminateProcess(process->hProcess, 0xFFFFFFFFu);
            CloseHandle(process->hThread);
            CloseHandle(process->hProcess);
        }
        *stage = PlatSpawnStage::identity;
        return revert_error;
    }
    if (error != 0) {
        *stage = PlatSpawnStage::execute;
    }
    return error;
}

// Plans and creates the child, under token's user when there is a token.
int32_t create_child(const PlatSpawnRequest &request, HANDLE token, PROCESS_INFORMATION *process,
                     PlatSpawnStage *stage) {
    Creation creation;
    InheritedHandles inherited;
    int32_t error = plan_creation(request, &creation, &inherited, stage);
    if (error != 0) {
        return error;
    }
    *stage = PlatSpawnStage::execute;
    error = token != nullptr ? create_as(creation, token, process, stage) : create(creation, nullptr, process);
    if (error == ERROR_DIRECTORY && creation.has_directory) {
        *stage = PlatSpawnStage::working_directory;
    }
    return error;
}

bool has_ended(HANDLE process) { return WaitForSingleObject(process, 0) == WAIT_OBJECT_0; }

}  // namespace

int32_t plat_authenticate(const PlatIdentity &identity, PlatLogonErrors *logon_errors) {
    PlatLogonErrors errors;
    OwnedHandle primary;
    PlatSpawnStage stage = PlatSpawnStage::none;
    int32_t error = user_token(identity, &primary, &errors, &stage);
    if (logon_errors != nullptr) {
        *logon_errors = errors;
    }
    return error;
}

int32_t plat_spawn(const PlatSpawnRequest &request, PlatChild *child, PlatSpawnStage *stage,
                   PlatLogonErrors *logon_errors) {
    *child = PlatChild{};
    *stage = PlatSpawnStage::none;
    PlatLogonErrors errors;
    OwnedHandle primary;
    int32_t error = user_token(request.identity, &primary, &errors, stage);
    if (logon_errors != nullptr) {
        *logon_errors = errors;
    }
    if (error != 0) {
        return error;
    }
    // Handles shared between starts (the caller's standard handles) are made
    // inheritable and back again by each start: one start at a time, so
    // that no start takes the mark away while another creates its child.
    static SRWLOCK creating = SRWLOCK_INIT;
    AcquireSRWLockExclusive(&creating);
    PROCESS_INFORMATION process{};
    error = create_child(request, primary.get(), &process, stage);
    ReleaseSRWLockExclusive(&creating);
    if (error != 0) {
        return error;
    }
    *stage = PlatSpawnStage::none;
    child->pid = process.dwProcessId;
    child->process = portable(process.hProcess);
    child->thread = portable(process.hThread);
    return 0;
}

int32_t plat_child_wait(const PlatChild &child, int32_t timeout_ms, PlatChildState *state, uint32_t *exit_code) {
    *state = PlatChildState::running;
    *exit_code = 0;
    if (child.process == kPlatNoHandle) {
        return ERROR_INVALID_HANDLE;
    }
    DWORD waited = WaitForSingleObject(native(child.process), timeout_ms < 0 ? INFINITE : static_cast<DWORD>(timeout_ms));
    if (waited == WAIT_TIMEOUT) {
        return 0;
    }
    if (waited != WAIT_OBJECT_0) {
        return waited == WAIT_FAILED ? system_error() : ERROR_INVALID_HANDLE;
    }
    DWORD code = 0;
    if (!GetExitCodeProcess(native(child.process), &code)) {
        return system_error();
    }
    *exit_code = code;
    *state = code == 0xFFFFFFFFu ? PlatChildState::killed : PlatChildState::exited;
    return 0;
}

int32_t plat_child_kill(const PlatChild &child) {
    if (child.process == kPlatNoHandle) {
        return ERROR_INVALID_HANDLE;
    }
    if (TerminateProcess(native(child.process), 0xFFFFFFFFu)) {
        return 0;
    }
    int32_t error = system_error();
    return has_ended(native(child.process)) ? 0 : error;
}

int32_t plat_child_resume(const PlatChild &child) {
    if (child.thread == kPlatNoHandle) {
        return ERROR_INVALID_HANDLE;
    }
    return ResumeThread(native(child.thread)) == static_cast<DWORD>(-1) ? system_error() : 0;
}

void plat_child_release(PlatChild *child) {
    if (child->thread != kPlatNoHandle) {
        CloseHandle(native(child->thread));
    }
    if (child->process != kPlatNoHandle) {
        CloseHandle(native(child->process));
    }
    *child = PlatChild{};
}
