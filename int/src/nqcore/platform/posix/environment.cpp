#include "../environment.h"

#include "../process.h"
#include "environment_expand.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include <unistd.h>

namespace nqcore::platform {
namespace {

// The C library lets a reader see an environment that a writer is about to free. There before any constructor runs and
// after all destructors have: variables are read while the library is loaded, and on the way out.
constinit std::mutex s_mutex;
constinit bool s_isKnownToForks = false;

class EnvironmentLock {
public:
    EnvironmentLock() : m_lock(s_mutex) {
        if (!s_isKnownToForks) [[unlikely]] {
            s_isKnownToForks = true;
            // A child must not find the lock held by a thread that it does not have.
            at_fork({[]() noexcept { s_mutex.lock(); }, []() noexcept { s_mutex.unlock(); },
                     []() noexcept { s_mutex.unlock(); }});
        }
    }

private:
    std::lock_guard<std::mutex> m_lock;
};

// The C library would find "A=B" in the variable A whose value begins with "B=".
bool can_be_name(std::string_view name) noexcept { return !name.empty() && name.find('=') == name.npos; }

// Under the lock. Null when there is no such variable.
const char* find_value(std::string_view name) noexcept {
    for (char** entry = can_be_name(name) ? environ : nullptr; entry != nullptr && *entry != nullptr; ++entry) {
        if (**entry == name[0] && std::strncmp(*entry, name.data(), name.size()) == 0 && (*entry)[name.size()] == '=') {
            return *entry + name.size() + 1;
        }
    }
    return nullptr;
}

using Variables = std::unordered_map<std::string_view, std::string_view>;

// Under the lock, and good while it is held. Of variables with the same name the first one counts, as for everybody.
Variables all_variables() {
    Variables variables;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text(*entry);
        const std::size_t nameLength = text.find('=');
        if (nameLength != text.npos && nameLength != 0) {
            variables.emplace(text.substr(0, nameLength), text.substr(nameLength + 1));
        }
    }
    return variables;
}

}  // namespace

VariableState variable_state(const char* name) noexcept {
    const EnvironmentLock lock;
    return find_value(name) != nullptr ? VariableState::Set : VariableState::NotSet;
}

unsigned long read_variable(std::string_view name, std::string& value, bool& found) {
    const EnvironmentLock lock;
    const char* const text = find_value(name);
    found = text != nullptr;
    if (found) {
        value = text;
    }
    return 0;
}

unsigned long expand_variables(std::string_view text, std::string& expanded, bool&) {
    constexpr std::ptrdiff_t fewSigns = 32;
    const EnvironmentLock lock;
    if (std::count(text.begin(), text.end(), '%') < fewSigns) {
        expanded = impl::expand_references(text, [](std::string& out, std::string_view name) {
            const char* const value = find_value(name);
            out.append(value != nullptr ? value : "");
            return value != nullptr;
        });
        return 0;
    }
    // A search through the environment for each of many references would take longer than to look at all of it once.
    expanded = impl::expand_references(text, [variables = all_variables()](std::string& out, std::string_view name) {
        const auto found = variables.find(name);
        out.append(found != variables.end() ? found->second : std::string_view());
        return found != variables.end();
    });
    return 0;
}

unsigned long write_variable(std::string_view name, std::string_view value) {
    const std::string nameText(name);
    const std::string valueText(value);
    const EnvironmentLock lock;
    const int result = value.empty() ? ::unsetenv(nameText.c_str()) : ::setenv(nameText.c_str(), valueText.c_str(), 1);
    return result == 0 ? 0 : static_cast<unsigned long>(errno);
}

}  // namespace nqcore::platform
