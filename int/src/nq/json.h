// JsonObject: an answer with fields, as one line of JSON.
#pragma once

#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace nqcore {
class ErrorInfo;
}

namespace nq {

/// Members stay in the order in which they are added. Text that is not UTF-8 gets U+FFFD for what is wrong.
class JsonObject {
public:
    JsonObject();
    JsonObject(JsonObject&&) noexcept;
    JsonObject& operator=(JsonObject&&) noexcept;
    ~JsonObject();

    JsonObject& add(std::string_view name, std::string_view text);
    JsonObject& add(std::string_view name, const char* text) { return add(name, std::string_view(text)); }
    /// A number that JSON cannot hold becomes null.
    JsonObject& add(std::string_view name, double number);
    template <std::integral Integer>
    JsonObject& add(std::string_view name, Integer number) {
        if constexpr (std::same_as<Integer, bool>) {
            return add_bool(name, number);
        } else if constexpr (std::signed_integral<Integer>) {
            return add_signed(name, number);
        } else {
            return add_unsigned(name, number);
        }
    }
    JsonObject& add(std::string_view name, const JsonObject& object);
    JsonObject& add_null(std::string_view name);

    /// The object and a line feed.
    [[nodiscard]] std::string line() const;

private:
    struct Impl;

    JsonObject& add_bool(std::string_view name, bool value);
    JsonObject& add_signed(std::string_view name, std::int64_t number);
    JsonObject& add_unsigned(std::string_view name, std::uint64_t number);

    std::unique_ptr<Impl> m_impl;
};

/// An error record: code, message, expanded message, parameters, place, host, cause.
[[nodiscard]] JsonObject json_of(const nqcore::ErrorInfo& error);

}  // namespace nq
