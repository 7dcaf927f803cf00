#include "sign/signature/RequirementDate.h"

#include "base/Number.h"

#include <chrono>

namespace sign {

std::optional<std::int64_t> secondsOfDate(std::string_view text) {
    const auto part = [text](std::size_t at, std::size_t size, int most) {
        return base::numberIn<int>(text.substr(at, size), 0, most);
    };
    if (text.size() != 15 || text[14] != 'Z' || text.find('-') != std::string_view::npos)
        return std::nullopt;
    const auto year = part(0, 4, 9999);
    const auto month = part(4, 2, 12);
    const auto day = part(6, 2, 31);
    const auto hour = part(8, 2, 23);
    const auto minute = part(10, 2, 59);
    const auto second = part(12, 2, 60);
    if (!year || !month || !day || !hour || !minute || !second)
        return std::nullopt;
    using namespace std::chrono;
    const year_month_day date = std::chrono::year(*year) / *month / *day;
    if (!date.ok())
        return std::nullopt;
    const seconds since = sys_days(date) - sys_days(2001y / 1 / 1) + hours(*hour) +
                          minutes(*minute) + seconds(*second);
    return since.count();
}

} // namespace sign
