// The command-line value parser: the standard conversion's rules on every
// runtime the program is built with, and one wording of its two errors.
#include "NumberParsing.h"

#include <gtest/gtest.h>

#include <stdexcept>

using Tessel::Bridge::Server::Services::Kestrel::StringToInt;

TEST(StringToInt, TheLeadingDecimalNumberOrOneOfTwoErrors)
{
    const struct {
        const wchar_t* text;
        const char* parsed; // the value, or the error's message
    } rows[] = {
        {L"7", "7"},        {L"\t\n\v\f\r +42", "42"}, {L"-15", "-15"},      {L"007", "7"},   {L"5abc", "5"},
        {L"0x1F", "0"},     {L"12 34", "12"},          {L"2147483647", "2147483647"},         {L"-2147483648", "-2147483648"},
        {L"", "invalid stoi argument"},                {L" ", "invalid stoi argument"},       {L"x5", "invalid stoi argument"},
        {L"-", "invalid stoi argument"},               {L"- 3", "invalid stoi argument"},     {L"+-3", "invalid stoi argument"},
        {L".5", "invalid stoi argument"},              {L"2147483648", "stoi argument out of range"},
        {L"-2147483649", "stoi argument out of range"}, {L"  -99999999999999999999999abc", "stoi argument out of range"},
    };
    for (const auto& row : rows) {
        std::string parsed;
        try {
            parsed = std::to_string(StringToInt(row.text));
        } catch (const std::invalid_argument& e) {
            parsed = e.what();
        } catch (const std::out_of_range& e) {
            parsed = e.what();
        }
        EXPECT_EQ(parsed, row.parsed) << '"' << row.text << '"';
    }
}
