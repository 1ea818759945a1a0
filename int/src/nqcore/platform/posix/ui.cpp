#include "../ui.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <string_view>

namespace nqcore::platform {
namespace {

struct Key {
    char plain;
    char withModifier;
    BoxButton button;
};

// One key for each button, and its upper-case form for the button with the modifier.
constexpr Key s_keys[] = {
    {'r', 'R', BoxButton::Retry},
    {'a', 'A', BoxButton::Abort},
    {'i', 'I', BoxButton::Ignore},
};
constexpr std::string_view s_question =
    "\n[r] Retry: debug        [R] SHIFT+Retry: throw exception"
    "\n[a] Abort               [A] SHIFT+Abort: memory dump and abort"
    "\n[i] Ignore              [I] SHIFT+Ignore: ignore always"
    "\n? ";

class File {
public:
    explicit File(const char* path) noexcept : m_file(::open(path, O_RDWR | O_NOCTTY | O_CLOEXEC)) {}
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() {
        if (m_file >= 0) {
            ::close(m_file);
        }
    }
    [[nodiscard]] int get() const noexcept { return m_file; }
    explicit operator bool() const noexcept { return m_file >= 0; }

private:
    const int m_file;
};

// A terminal that is somebody else's at the moment must not stop the process, which is what these two signals do: with
// them held back, reading fails instead.
class TerminalSignalsHeld {
public:
    TerminalSignalsHeld() noexcept {
        sigset_t held;
        sigemptyset(&held);
        sigaddset(&held, SIGTTIN);
        sigaddset(&held, SIGTTOU);
        pthread_sigmask(SIG_BLOCK, &held, &m_before);
    }
    TerminalSignalsHeld(const TerminalSignalsHeld&) = delete;
    TerminalSignalsHeld& operator=(const TerminalSignalsHeld&) = delete;
    ~TerminalSignalsHeld() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before;
};

// The terminal gives single keys, unseen; keys that raise signals come as keys too, so that no signal ends the process
// while the terminal is in this state. What was typed before is dropped: it was no answer.
class SingleKeys {
public:
    explicit SingleKeys(int terminal) noexcept : m_terminal(terminal), m_isSet(tcgetattr(terminal, &m_before) == 0) {
        if (m_isSet) {
            termios keys = m_before;
            keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG | IEXTEN);
            keys.c_cc[VMIN] = 1;
            keys.c_cc[VTIME] = 0;
            m_isSet = tcsetattr(terminal, TCSAFLUSH, &keys) == 0;
        }
    }
    SingleKeys(const SingleKeys&) = delete;
    SingleKeys& operator=(const SingleKeys&) = delete;
    ~SingleKeys() {
        if (m_isSet) {
            tcsetattr(m_terminal, TCSADRAIN, &m_before);
        }
    }

    explicit operator bool() const noexcept { return m_isSet; }
    /// The signal that a key raises otherwise; 0 for none.
    [[nodiscard]] int signal_of(char key) const noexcept {
        static constexpr struct {
            unsigned index;
            int signal;
        } s_signals[] = {{VINTR, SIGINT}, {VQUIT, SIGQUIT}, {VSUSP, SIGTSTP}};
        for (const auto& row : s_signals) {
            const cc_t character = m_before.c_cc[row.index];
            if (character != _POSIX_VDISABLE && static_cast<cc_t>(key) == character) {
                return row.signal;
            }
        }
        return 0;
    }
    [[nodiscard]] bool is_end_of_file(char key) const noexcept {
        return m_before.c_cc[VEOF] != _POSIX_VDISABLE && static_cast<cc_t>(key) == m_before.c_cc[VEOF];
    }

private:
    const int m_terminal;
    termios m_before = {};  // filled before m_isSet is
    bool m_isSet;
};

bool write_all(int file, std::string_view text) noexcept {
    while (!text.empty()) {
        const ssize_t written = ::write(file, text.data(), text.size());
        if (written > 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (written == 0 || errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Finds what steers a terminal: control characters but for tabulators and ends of lines, the upper ones (0x80 to 0x9F)
// alone and as UTF-8.
class Controls {
public:
    // To be asked of each byte of a text in turn.
    bool has(unsigned char byte, unsigned char next) noexcept {
        if (m_expected != 0 && (byte & 0xC0u) == 0x80) {
            --m_expected;
            return m_isUpper;
        }
        m_expected = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC2 ? 1 : 0;
        m_isUpper = byte == 0xC2 && is_upper(next);
        return m_isUpper || is_upper(byte) || byte == 0x7F || (byte < 0x20 && byte != '\n' && byte != '\t');
    }

private:
    static bool is_upper(unsigned char byte) noexcept { return byte >= 0x80 && byte < 0xA0; }

    int m_expected = 0;  // bytes of the character that are still to come
    bool m_isUpper = false;
};

// Whatever the text holds, it does not steer the terminal. In pieces, because memory may have run out.
bool write_shown(int file, std::string_view text) noexcept {
    static constexpr char digits[] = "0123456789abcdef";
    char shown[512];
    std::size_t size = 0;
    Controls controls;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (controls.has(byte, static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0'))) {
            for (const char written : {'\\', 'x', digits[byte >> 4], digits[byte & 15]}) {
                shown[size++] = written;
            }
        } else {
            shown[size++] = text[i];
        }
        if (size > sizeof shown - 4) {
            if (!write_all(file, {shown, size})) {
                return false;
            }
            size = 0;
        }
    }
    return write_all(file, {shown, size});
}

bool is_ours(int terminal) noexcept { return tcgetpgrp(terminal) == getpgrp(); }

enum class Reading { Answered, Interrupted, Ended };

// Reads keys up to one that means something.
Reading read_answer(int terminal, const SingleKeys& keys, BoxAnswer& answer, int& signal) noexcept {
    for (;;) {
        char key = 0;
        const ssize_t count = ::read(terminal, &key, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0 || keys.is_end_of_file(key)) {
            return Reading::Ended;
        }
        signal = keys.signal_of(key);
        if (signal != 0) {
            return Reading::Interrupted;
        }
        for (const Key& row : s_keys) {
            if (key == row.plain || key == row.withModifier) {
                answer = {row.button, key == row.withModifier};
                const char echo[] = {key, '\n'};
                static_cast<void>(write_all(terminal, {echo, sizeof echo}));
                return Reading::Answered;
            }
        }
    }
}

// A key that raises a signal does so with the terminal as it was; a process that goes on is asked again.
BoxAnswer ask(int terminal) noexcept {
    for (;;) {
        BoxAnswer answer;
        int signal = 0;
        Reading reading = Reading::Ended;
        {
            const SingleKeys keys(terminal);
            if (!keys || !write_all(terminal, s_question)) {
                return {};
            }
            reading = read_answer(terminal, keys, answer, signal);
        }
        if (reading != Reading::Interrupted) {
            return answer;
        }
        ::kill(signal == SIGTSTP ? 0 : ::getpid(), signal);
        if (!is_ours(terminal)) {
            return {};
        }
    }
}

BoxAnswer show_prompt(const char* text, const char* caption, std::uint32_t style) noexcept {
    const File terminal("/dev/tty");
    if (!terminal || !is_ours(terminal.get())) {
        return {};
    }
    const TerminalSignalsHeld held;
    for (const std::string_view part : {std::string_view("\n"), std::string_view(caption), std::string_view("\n\n"),
                                        std::string_view(text), std::string_view("\n")}) {
        if (!write_shown(terminal.get(), part)) {
            return {};
        }
    }
    // Nothing is to be decided where OK is the only button.
    return (style & boxButtonsMask) == boxAbortRetryIgnore ? ask(terminal.get()) : BoxAnswer{BoxButton::Ok, false};
}

}  // namespace

bool visible_desktop() noexcept {
    enum { unknown, yes, no };
    static constinit std::atomic<int> s_visible = unknown;
    int visible = s_visible.load(std::memory_order_relaxed);
    if (visible == unknown) {
        const int before = errno;
        visible = File("/dev/tty") ? yes : no;
        errno = before;
        s_visible.store(visible, std::memory_order_relaxed);
    }
    return visible == yes;
}

bool can_show_box() noexcept { return visible_desktop(); }

BoxAnswer message_box(const char* text, const char* caption, std::uint32_t style) noexcept {
    const int before = errno;
    const BoxAnswer answer = show_prompt(text, caption, style);
    errno = before;
    return answer;
}

}  // namespace nqcore::platform
