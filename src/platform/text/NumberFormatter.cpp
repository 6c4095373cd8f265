#include "platform/text/NumberFormatter.h"

#include <algorithm>
#include <cstdio>

#include <unicode/locid.h>
#include <unicode/numberformatter.h>

#include "platform/log/Log.h"
#include "platform/text/LocaleSettings.h"

namespace vexo::text {

struct NumberFormatter::Impl {
    icu::number::LocalizedNumberFormatter formatter;
};

NumberFormatter::NumberFormatter(std::string_view locale, int maximumFractionDigits)
    : m_locale(locale),
      m_impl(std::make_unique<Impl>()) {
    int digits = std::clamp(maximumFractionDigits, 0, 15);
    m_impl->formatter = icu::number::NumberFormatter::withLocale(icu::Locale(m_locale.c_str()))
                            .precision(icu::number::Precision::maxFraction(digits))
                            .roundingMode(UNUM_ROUND_HALFEVEN);
}

NumberFormatter::~NumberFormatter() = default;
NumberFormatter::NumberFormatter(NumberFormatter&&) noexcept = default;
NumberFormatter& NumberFormatter::operator=(NumberFormatter&&) noexcept = default;

NumberFormatter NumberFormatter::decimal() {
    return NumberFormatter(LocaleSettings::formattingLocale(), 1);
}

std::string NumberFormatter::format(double value) const {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString text = m_impl->formatter.formatDouble(value, status).toString(status);
    if (U_FAILURE(status)) {
        // Only a broken ICU data install gets here; plain digits beat no text.
        log::debug("text", std::string("number not formatted: ") + u_errorName(status));
        char fallback[64];
        std::snprintf(fallback, sizeof fallback, "%g", value);
        return fallback;
    }
    std::string out;
    text.toUTF8String(out);
    return out;
}

} // namespace vexo::text
