// Cases of the wide formatter: X(format, expected, arguments...). The first
// table is what msvcrt.dll prints, checked against it under Wine as well; the
// second holds cases where Wine's msvcrt differs from Windows. Rows marked
// printf.c are Windows' answers in Wine's msvcrt conformance test (sprintf).
#pragma once

#include <climits>
#include <cmath>
#include <limits>
#include <string>

namespace KestrelTest {

using namespace std::string_literals;

inline const double kInf = std::numeric_limits<double>::infinity();
inline const double kNan = std::numeric_limits<double>::quiet_NaN();
inline const double kIndefinite = std::copysign(kNan, -1.0); // 0.0/0.0 on x86
inline void* const kPointer = reinterpret_cast<void*>(0x1234);

// ANSI_STRING / UNICODE_STRING: lengths in bytes.
struct CountedString {
    unsigned short length, maximumLength;
    const void* buffer;
};
inline const CountedString kAnsi{3, 4, "abcd"}, kUnicode{3 * sizeof(wchar_t), 4 * sizeof(wchar_t), L"xyzw"};

} // namespace KestrelTest

#define KESTREL_WIDE_FORMAT_CASES(X) \
    /* printf.c */ X(L"% d|%+ d|%-i|%3d|%o|%u|%-5I64d|%05I64d", L" 1|+1|-1|1234|12|4294967295|-100 |-0100"s, 1, 1, -1, 1234, 10, -1, -100LL, -100LL) \
    /* printf.c */ X(L"%#+21.18I64x|%#+18.21I64X|%#-8.5I64o|%#-+ 08.5I64d|%.0I64d", L" 0x00ffffffffffffff9c|0X00000FFFFFFFFFFFFFF9C|" \
      L"00144   |+00100  |"s, -100LL, -100LL, 100LL, 100LL, 0LL) \
    /* printf.c */ X(L"%#012x|%#012x|%#04.8x|%#04.8x|%#-08.2x|%#-08.2x|%#.0x|%#.0x|%#08o|%#o|%#o", \
      L"0x0000000001|000000000000|0x00000001|00000000|0x01    |00      |0x1||00000001|01|0"s, 1, 0, 1, 0, 1, 0, 1, 0, 1, 1, 0) \
    /* printf.c */ X(L"%*1d|%0*0d|% *2d|%*s|%.*s", L"          3|0000000002| 7|foo  |f"s, 1, 3, 1, 2, 0, 7, -5, L"foo", 1, L"foo") \
    /* printf.c */ X(L"%hx|%hhx|%hhx|%zx|%tx|%jd|%Ix %d", L"2345|123|2345|1|1|-1|12345678123456 1"s, 0x12345, 0x123, 0x12345, \
      static_cast<size_t>(1), static_cast<ptrdiff_t>(1), -1LL, static_cast<size_t>(0x12345678123456), 1) \
    /* printf.c */ X(L"%_1I64d|%I|%Iq|%Ihd|%I0d|%I64D|%b|%H|%%0|%w0s|%w-s|%k%m%q%r%t%v%y%z", L"_1I64d|I|Iq|Ihd|I0d|D|b|H|%0|0s|-s|kmqrtvyz"s) \
    /* printf.c */ X(L"%j", L""s) \
    /* printf.c */ X(L"%z", L"z"s) \
    X(L"%hhd|%hd|%hu|%#hx|%ld|%lx|%lld|%llx", L"4464|-25536|65535|0xffff|-1|ffffffff|-1|ffffffffffffffff"s, 70000, 40000, -1, 0x1FFFF, -1L, -1L, -1LL, -1LL) \
    X(L"%I32I64d|%I64I32d|%lI64d|%llI32d|%Ld|%Fd|%Nd|%wd", L"1|2|3|4|5|6|7|8"s, 1LL, 2, 3LL, 4LL, 5, 6, 7, 8) \
    X(L"%2147483648d|%4294967301d|%.2147483648s|%.4294967298s|", L"1|    2|abc|ab|"s, 1, 2, L"abc", L"abc") \
    X(L"%s|%S|%ls|%hs|%ws|%hS|%lS|%wS|%lls|%llS|%I64s|%I64S", L"wide|narrow|wide|narrow|wide|narrow|wide|wide|wide|narrow|wide|narrow"s, \
      L"wide", "narrow", L"wide", "narrow", L"wide", "narrow", L"wide", L"wide", L"wide", "narrow", L"wide", "narrow") \
    X(L"%s|%S|%.3s|%.3S|%10s|%-7S|", L"(null)|(null)|(nu|(nu|    (null)|(null) |"s, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr) \
    X(L"%05s|%-05s|%05c|%+5s|%#s|%10.2ls|%-10.2S|%.0s|%.*s|%.*S", L"000ab|ab   |0000x|   ab|ab|        wi|na        ||all|all"s, \
      L"ab", L"ab", L'x', L"ab", L"ab", L"wide", "narrow", L"x", -1, L"all", -5, "all") \
    X(L"%S|%s", L"\x80\xff\xe9 |\u0141\U0001F600"s, "\x80\xff\xe9 ", L"\u0141\U0001F600") \
    X(L"%c|%C|%hc|%lc|%wc|%lC|%hC|%wC|%3c|%-3c|%03C|%#c|%+c", L"a|b|c|d|e|f|g|h|  i|j  |00k|l|m"s, \
      L'a', 'b', 'c', L'd', L'e', L'f', 'g', L'h', L'i', L'j', 'k', L'l', L'm') \
    X(L"%c|%C|%C|%hc|%I64C|%llC|%lc", L"\0|\0|\xe9|\xff|A|A|\u0141"s, 0, 0, 0xE9, 0x1FF, 0x141, 0x141, 0x141) \
    X(L"%p|%#p|%020p|%-20p|%+hp|%I32p", L"0000000000001234|0X0000000000001234|    0000000000001234|0000000000000000    |0000000000001234|" \
      L"0000000123456789"s, kPointer, kPointer, kPointer, nullptr, kPointer, reinterpret_cast<void*>(0x123456789)) \
    X(L"%f|%e|%E|%g|%G|%.0f|%#.0f|%#g|%g|%#.0e|%.0e", L"1.500000|1.500000e+000|1.500000E+000|0.0001|1E+020|3|2.|1.00000|100000|3.e+000|1e+001"s, \
      1.5, 1.5, 1.5, 0.0001, 1e20, 2.5, 2.0, 1.0, 100000.0, 2.5, 9.5) \
    /* printf.c */ X(L"%+#23.15e|%-#23.15e|%#1.1g|%2.4f|%0f|%.0f|%2.4e|% 014.4e|% 2.4e|%2.4g|%.0f|%.0f", \
      L"+7.894561230000000e+008|7.894561230000000e+008 |8.e+008|8.6000|0.600000|1|8.6000e+000| 008.6000e+000|-8.6000e+000|8.6|-2|-1"s, \
      789456123.0, 789456123.0, 789456123.0, 8.6, 0.6, 0.6, 8.6, 8.6, -8.6, 8.6, -1.5, -0.5) \
    /* printf.c */ X(L"%.15f|%.15f|%g|%g|%.15g", L"3.141592653589793|37.866261574537077|5e-005|1e+015|999999999999999"s, \
      3.14159265358979323846, 37.866261574537077, 0.00005, 999999999999999.0, 999999999999999.0) \
    /* ours: '#' keeps the point %g would drop */ X(L"%#.0g|%#g|%#.3g|%#.1g", L"3.|100000.|100.|1.e+002"s, 2.5, 100000.0, 99.9985, 100.0) \
    X(L"%.3g|%g|%g|%g|%.2g|%.2g|%.1g|%g|%#.2g|%g|%g", L"0.000123|1e-005|123456|1.23457e+006|1e+002|0.0001|0.9|0|0.0|10|1e+006"s, \
      0.0001234, 1e-5, 123456.0, 1234567.0, 99.5, 0.000099951, 0.95, 0.0, 0.0, 9.9999995, 999999.5) \
    X(L"%e|%f|%g|%E|%.16e|%.3e|%e|%e|%g|%.15f", L"-0.000000e+000|-0.000000|-0|0.000000E+000|1.0000000000000001e-001|9.999e+000|" \
      L"4.940656e-324|1.000000e-300|1e-300|0.000000000000000"s, -0.0, -0.0, -0.0, 0.0, 0.1, 9.9995, 5e-324, 1e-300, 1e-300, 1e-300) \
    X(L"%F|%Lf|%lf|%hf|%I64f|%wf", L"|1.500000|2.500000|3.500000|4.500000|5.500000"s, 1.5, 2.5, 3.5, 4.5, 5.5) \
    X(L"%f|%e|%g|%.2f|%.1f|%.3f|%.0f|%10.2f|%010f|%+f|% f|%010.2f", L"1.#INF00|1.#INF00e+000|1.#INF|1.#J|1.$|1.#IO|1|      1.#J|" \
      L"-01.#INF00|+1.#INF00| 1.#QNAN0|0000001.#R"s, kInf, kInf, kInf, kInf, kInf, kInf, kInf, kInf, -kInf, kInf, kNan, kNan) \
    X(L"%f|%e|%G|%.2f|%.1f|%.3e|%.4e|%.1g|%.2g|%.3g|%#.3g|%.10g", L"1.#QNAN0|-1.#IND00e+000|1.#QNAN|1.#R|1.$|1.#QOe+000|1.#QNBe+000|1|1.$|1.#R|1.#J|1.#INF"s, \
      kNan, kIndefinite, kNan, kNan, kNan, kNan, kNan, kInf, kInf, kNan, kInf, kInf) \
    X(L"%a|%A|%.2a|%.1a|%.0a|%#.0a|%012.1a|%.2a|%a|%.0a|%a|%A|%.2a", L"0x1.0000000000000p+0|-0X1.4000000000000P+1|0x2.00p+0|0x2.0p+0|0x1p+1|" \
      L"0x1.p+0|0x00001.0p+0|0x1.55p-2|0x0.0000000000001p-1022|0x0p-1022|0x1.#QNAN00000000p+0|-0X1.#IND000000000P+0|0x1.#Jp+0"s, \
      1.0, -2.5, 1.999, 1.96875, 2.5, 1.0, 1.0, 1.0 / 3, 5e-324, 5e-324, kNan, kIndefinite, kInf)

// Cases where Wine 8's msvcrt is not Windows' (each named); checked on our
// formatter only.
#define KESTREL_WIDE_FORMAT_CASES_BEYOND_WINE(X) \
    /* A '%' that ends a directive is text, like any character that does; Wine drops it. */ \
    X(L"%5%|%-05%|%.%|%5%d", L"%|%|%|%d"s) \
    /* printf.c; Wine 8's msvcrt faults on it (a write to 0x3C). */ X(L"%#.25I64o", L"0001777777777777777777634"s, -100LL) \
    /* printf.c, todo_wine: 17 significant digits, then zeros. */ \
    X(L"%.30f|%.30lf", L"0.333333333333333310000000000000|1.414213562373095100000000000000"s, 1.0 / 3, std::sqrt(2.0)) \
    /* Wine cuts %c by the precision, keeps the '0' flag of an integer with one, and drops the 0 of "%#.0o". */ \
    X(L"%.0c|%05.3d|%020.3x|%#.0o", L"c| -042|                 00f|0"s, L'c', -42, 15, 0) \
    /* %p always prints every digit and integer precision stops at 512; Wine honours and does not cap it. */ \
    X(L"%.2p|%-#20.3p|%.600d", L"0000000000001234|0X0000000000000012  |"s + std::wstring(511, L'0') + L"1", kPointer, reinterpret_cast<void*>(0x12), 1) \
    /* 17 significant digits, then zeros (Microsoft's own VS2015 notes give 2^80); Wine prints exact digits. */ \
    X(L"%.0f|%.17e|%.20f", L"1208925819614629200000000|1.00000000000000010e-001|0.10000000000000001000"s, std::ldexp(1.0, 80), 0.1, 0.1) \
    /* Wine has no %Z. */ \
    X(L"%Z|%wZ|%Z|%6Z|%-6wZ|", L"abc|xyz|(null)|   abc|xyz   |"s, &kAnsi, &kUnicode, nullptr, &kAnsi, &kUnicode) \
    /* Wine prints every NaN as QNAN or IND. */ \
    X(L"%f|%e", L"1.#SNAN0|1.#SNAN0e+000"s, std::numeric_limits<double>::signaling_NaN(), std::numeric_limits<double>::signaling_NaN()) \
    /* %.0g is %.1g; Wine takes it for the default precision on infinity, and drops the zeros of 1.#INF00 when left-justifying. */ \
    X(L"%.0g|%.0g|%-10f", L"1|2|1.#INF00  "s, kInf, 1.5, kInf) \
    /* %n stores nothing here: a log formatter never writes through its arguments. */ \
    X(L"a%nb%hn", L"ab"s, nullptr, nullptr)
