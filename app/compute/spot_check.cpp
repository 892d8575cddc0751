// Known digits for the spot check, and the check. The digits were computed independently of
// this program (to 10,000,100 digits, pi to 100,000,100) and are shipped here as facts.
#include "app/compute/spot_check.h"

#include <cstring>

#include "qmp/exception.h"

namespace qv {

const std::vector<SpotDigits>& spot_digit_table() {
    static const std::vector<SpotDigits> table = {
        {"pi", 3, 10000, "05600101655256375678"},        {"pi", 3, 100000, "67420805655493624646"},
        {"pi", 3, 1000000, "22090106105779458151"},      {"pi", 3, 10000000, "31719481735348955897"},
        {"pi", 3, 100000000, "14970581120187751592"},    {"e", 2, 10000, "87042300179465536788"},
        {"e", 2, 100000, "54291079721004271658"},        {"e", 2, 1000000, "13798176447694228188"},
        {"e", 2, 10000000, "44429298561396705376"},      {"sqrt2", 1, 10000, "65553230285873258351"},
        {"sqrt2", 1, 100000, "83770081805610147523"},    {"sqrt2", 1, 1000000, "20441930169048412043"},
        {"sqrt2", 1, 10000000, "12357272787213158971"},  {"golden", 1, 10000, "72509231327977113803"},
        {"golden", 1, 100000, "78836739749559326106"},   {"golden", 1, 1000000, "33872287874153226344"},
        {"golden", 1, 10000000, "62100044014825797564"}, {"log2", 0, 10000, "13401856601359655560"},
        {"log2", 0, 100000, "02205469487696859273"},     {"log2", 0, 1000000, "18380153906808836541"},
        {"log2", 0, 10000000, "80135652602465385883"},   {"log3", 1, 10000, "02050712065814167963"},
        {"log3", 1, 100000, "73141693325583635420"},     {"log3", 1, 1000000, "99292978471809973791"},
        {"log3", 1, 10000000, "00191949733738650848"},   {"log10", 2, 10000, "90411390637181488339"},
        {"log10", 2, 100000, "97134464580572048666"},    {"log10", 2, 1000000, "79571345539665379150"},
        {"log10", 2, 10000000, "08958617819805276788"},  {"zeta3", 1, 10000, "35627292231895042350"},
        {"zeta3", 1, 100000, "10581654605937250931"},    {"zeta3", 1, 1000000, "33964103019345707332"},
        {"zeta3", 1, 10000000, "33887058162791929459"},  {"catalan", 0, 10000, "99564183829537871503"},
        {"catalan", 0, 100000, "42431377708605391277"},  {"catalan", 0, 1000000, "76634880952596534797"},
        {"catalan", 0, 10000000, "98404031503119773010"}, {"lemniscate", 5, 10000, "39193872831514152075"},
        {"lemniscate", 5, 100000, "12032803050323336121"}, {"lemniscate", 5, 1000000, "50139353683648089791"},
        {"lemniscate", 5, 10000000, "51241600848237413280"}, {"euler", 0, 10000, "13004718684679858165"},
        {"euler", 0, 100000, "56340316331811093897"},    {"euler", 0, 1000000, "91148687139175027262"},
        {"euler", 0, 10000000, "78586743515442285800"},
    };
    return table;
}

std::string spot_check_key(const std::string& constant, int64_t argument) {
    if (constant == "pi" || constant == "e" || constant == "zeta3" || constant == "catalan" ||
        constant == "lemniscate")
        return constant;
    if (constant == "goldenratio") return "golden";
    if (constant == "gamma" || constant == "brent") return "euler";
    if (constant == "sqrt" && argument == 2) return "sqrt2";
    if (constant == "log" && (argument == 2 || argument == 3 || argument == 10)) return "log" + std::to_string(argument);
    return "";
}

std::optional<uint64_t> check_spot_digits(const std::string& key, uint64_t integer_part, uint64_t digits,
                                          const DigitSource& read_digits) {
    constexpr const char* kFunction = "SpotCheck::run()";
    std::optional<uint64_t> good_through;
    for (const SpotDigits& entry : spot_digit_table()) {
        if (key != entry.key || entry.position > digits) continue;
        if (integer_part != entry.integer_part)
            throw qmp::AlgorithmFailedException(kFunction, "Spot check failed at: 0");
        const uint64_t count = std::strlen(entry.digits);
        const uint64_t first = entry.position - count;  // 0-based index of the first digit
        std::vector<char> raw(count);
        read_digits(raw.data(), first, count);
        for (uint64_t i = 0; i < count; ++i) {
            if (raw[i] != entry.digits[i] - '0')
                throw qmp::AlgorithmFailedException(kFunction, "Spot check failed at: " + std::to_string(first + i + 1));
        }
        good_through = entry.position;
    }
    return good_through;
}

}  // namespace qv
