// What `nq time` and `nq duration` share: values from the command line or standard input, each written in several forms.
#pragma once

#include "command.h"
#include "errors.h"
#include "input.h"
#include "json.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace nq {

/// A form that a value can be written in. The name is that of its option and of its member in JSON.
template <class Value>
struct Form {
    const char* name;
    const char* label;
    std::string (*text)(const Value& value);
    void (*add_json)(JsonObject& object, const char* name, const Value& value) = nullptr;  ///< null: the text
};

/// Reads and writes values, one after the other, in the way that the command line asks for: the forms that it chooses,
/// one line for each value; the default forms as a table without a choice; or one JSON object for each value.
template <class Value>
class ValueWriter {
public:
    using Read = Value (*)(std::string_view text, const Arguments& arguments);

    /// In       `forms`: all that can be chosen; `defaults`: those that are written without a choice; both in the order
    ///          in which they are written.
    ValueWriter(Context& context, std::span<const Form<Value>> forms, std::span<const Form<Value>> defaults, Read read)
        : m_context(context), m_read(read), m_isJson(context.arguments.has("json")) {
        for (const Form<Value>& form : forms) {
            if (context.arguments.has(form.name)) {
                m_forms.push_back(&form);
            }
        }
        m_isChoice = !m_forms.empty();
        for (const Form<Value>& form : defaults) {
            if (!m_isChoice) {
                m_forms.push_back(&form);
            }
        }
    }

    /// The values of the argument "VALUE", or the lines of standard input when there are none.
    ///
    /// Returns  the exit code. A value that cannot be read is reported, and the next one has its turn.
    int run() {
        for (const std::string& value : m_context.arguments.values("VALUE")) {
            write(value);
        }
        if (!m_context.arguments.has("VALUE")) {
            Input input("-");
            LineReader lines(input);
            for (std::string_view line; lines.next(line);) {
                write(line);
                if (lines.may_wait()) {
                    m_context.out.flush();
                }
            }
        }
        return m_exitCode;
    }

private:
    void write(std::string_view text) {
        try {
            const Value value = m_read(text, m_context.arguments);
            m_context.out.write(m_isJson ? json_line(value) : m_isChoice ? value_line(value) : table(value));
        } catch (const nqcore::ErrorException& failure) {
            if (failure.matches("error.nq")) {
                throw;
            }
            m_context.report(*failure.error());
            m_exitCode = s_exitBadData;
        }
    }

    [[nodiscard]] std::string json_line(const Value& value) const {
        JsonObject object;
        for (const Form<Value>* form : m_forms) {
            if (form->add_json != nullptr) {
                form->add_json(object, form->name, value);
            } else {
                object.add(form->name, form->text(value));
            }
        }
        return object.line();
    }

    [[nodiscard]] std::string value_line(const Value& value) const {
        std::string line;
        for (const Form<Value>* form : m_forms) {
            line += line.empty() ? "" : "\t";
            line += form->text(value);
        }
        return line + '\n';
    }

    // Tables of several values are parted by an empty line.
    [[nodiscard]] std::string table(const Value& value) {
        std::string text = m_hasWritten ? "\n" : "";
        m_hasWritten = true;
        for (const Form<Value>* form : m_forms) {
            std::string label = form->label;
            label.resize(13, ' ');
            text += label + form->text(value) + '\n';
        }
        return text;
    }

    Context& m_context;
    Read m_read;
    bool m_isJson;
    bool m_isChoice = false;
    bool m_hasWritten = false;
    std::vector<const Form<Value>*> m_forms;
    int m_exitCode = s_exitDone;
};

}  // namespace nq
