#pragma once

#include <memory>
#include <string>
#include <string_view>

// Locale-aware decimal number text, as the screens show durations: the locale's decimal
// mark and grouping, at most a given number of fraction digits, ties rounded to even
// (12.25 -> "12.2", 12.35 -> "12.4"), no trailing zeros (4.0 -> "4"). Immutable once
// made, so one formatter may be used from several threads.
namespace vexo::text {

class NumberFormatter {
public:
    // A decimal formatter for `locale` ("de_DE", "en"); an unknown locale formats as ICU's
    // root locale does.
    explicit NumberFormatter(std::string_view locale, int maximumFractionDigits = 1);
    ~NumberFormatter();
    NumberFormatter(NumberFormatter&&) noexcept;
    NumberFormatter& operator=(NumberFormatter&&) noexcept;

    // The screens' duration formatter: decimal, one fraction digit at most, in
    // LocaleSettings::formattingLocale().
    [[nodiscard]] static NumberFormatter decimal();

    // `value` as UTF-8 text; "NaN" and "∞" for the values that are not finite.
    [[nodiscard]] std::string format(double value) const;

    [[nodiscard]] const std::string& locale() const { return m_locale; }

private:
    struct Impl;
    std::string m_locale;
    std::unique_ptr<Impl> m_impl;
};

} // namespace vexo::text
