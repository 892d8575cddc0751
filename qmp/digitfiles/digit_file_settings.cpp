#include "qmp/digitfiles/digit_file_settings.h"

#include "qmp/digitfiles/digit_file_names.h"
#include "qmp/exception.h"

namespace qmp {

void DigitFileSettings::set_digits_per_file(int64_t digits) {
    if (digits != 0 && (digits < 0 || uint64_t(digits) < kMinDigitsPerFile)) {
        throw InvalidParametersException("DigitFileSettings::set_digits_per_file()",
                                         "DigitsPerFile must be at least " +
                                             format_with_commas(kMinDigitsPerFile) + " digits.");
    }
    digits_per_file = uint64_t(digits);
}

void DigitFileSettings::load(const ConfigObject& config) {
    static const char* const place = "DigitFileSettings::load()";
    if (const ConfigObject* d = config.as_object(place).find("DigitsPerFile")) {
        set_digits_per_file(d->as_integer("DigitsPerFile"));
    }
    if (const ConfigObject* r = config.find("RawIO")) raw_io = r->as_bool("RawIO");
}

void DigitFileSettings::store(ConfigObject& config) const {
    config.add_integer("DigitsPerFile", int64_t(digits_per_file));
    config.add_bool("RawIO", raw_io);
}

}  // namespace qmp
