// Text from outside: is it UTF-8, what is in it, what may be shown of it.
#include <nqcore/error_exception.h>
#include <nqcore/string_to.h>
#include <nqcore/string_util.h>
#include <nqcore/transforms.h>
#include <nqcore/ucsutil.h>

#include <iostream>
#include <string>

int main() {
    std::string line = "caf\xC3\xA9 \xFF paid with 4111111111111111 today";

    const nqcore::Utf8Finding fault = nqcore::find_invalid_utf8(line);
    std::cout << "byte " << fault.offset << ": " << nqcore::utf8_fault_message(fault.fault) << '\n';

    const nqcore::Utf8Repair repair = nqcore::make_valid_utf8(std::span<char>(line), '?');
    nqcore::mask_credit_card_numbers_in_place(line);
    std::cout << repair.repairedBytes << " byte replaced: " << line << '\n';

    unsigned short units[8] = {};
    const unsigned count = nqcore::utf8_to_utf16("\xF0\x9F\x8C\x8D", 4, units, 8, 0, nullptr);
    std::cout << count << " units of UTF-16\n";

    std::cout << nqcore::string_to<double>("6.02e23") / 2 << '\n';
    nqcore::RefCountPtr<const nqcore::ErrorInfo> error;
    const int port = nqcore::string_to<int>("80 80", &error);  // 0, and the record says why
    std::cout << port << ' ' << error->code() << '\n';

    const std::string text = nqcore::Base64::encode(std::string("\x01\x02\xFF", 3));
    std::cout << text << ' ' << nqcore::Hex::encode(nqcore::Base64::decode(text)) << '\n';
    try {
        std::cout << nqcore::Base64::decode("AQ!/") << '\n';
    } catch (const nqcore::ErrorException& e) {
        std::cout << e.error()->code() << " at " << e.error()->params().get_value("stringPos") << '\n';
    }
}
