#include "json.h"

#include "nqcore/error_info.h"

#include <nlohmann/json.hpp>

namespace nq {

struct JsonObject::Impl {
    nlohmann::ordered_json value = nlohmann::ordered_json::object();
};

JsonObject::JsonObject() : m_impl(std::make_unique<Impl>()) {}
JsonObject::JsonObject(JsonObject&&) noexcept = default;
JsonObject& JsonObject::operator=(JsonObject&&) noexcept = default;
JsonObject::~JsonObject() = default;

JsonObject& JsonObject::add(std::string_view name, std::string_view text) {
    m_impl->value[std::string(name)] = text;
    return *this;
}

JsonObject& JsonObject::add(std::string_view name, double number) {
    m_impl->value[std::string(name)] = number;
    return *this;
}

JsonObject& JsonObject::add(std::string_view name, const JsonObject& object) {
    m_impl->value[std::string(name)] = object.m_impl->value;
    return *this;
}

JsonObject& JsonObject::add_null(std::string_view name) {
    m_impl->value[std::string(name)] = nullptr;
    return *this;
}

JsonObject& JsonObject::add_bool(std::string_view name, bool value) {
    m_impl->value[std::string(name)] = value;
    return *this;
}

JsonObject& JsonObject::add_signed(std::string_view name, std::int64_t number) {
    m_impl->value[std::string(name)] = number;
    return *this;
}

JsonObject& JsonObject::add_unsigned(std::string_view name, std::uint64_t number) {
    m_impl->value[std::string(name)] = number;
    return *this;
}

std::string JsonObject::line() const {
    return m_impl->value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

JsonObject json_of(const nqcore::ErrorInfo& error) {
    JsonObject params;
    for (unsigned index = 0; index < error.params().size(); ++index) {
        params.add(error.params().name_at(index).view(), error.params().value_at(index));
    }
    JsonObject object;
    object.add("code", error.code().value().view());
    object.add("message", error.expanded_message().view());
    object.add("template", error.message().view());
    object.add("params", params);
    object.add("function", error.location().function().view());
    object.add("file", error.location().file_depot_path());
    object.add("line", error.location().line());
    object.add("hostname", error.hostname().view());
    if (!error.nested().is_null()) {
        object.add("cause", json_of(*error.nested()));
    }
    return object;
}

}  // namespace nq
