#pragma once

#include <string>
#include <string_view>

namespace quillo::server {

/// English words that are written differently from how a recogniser spells them. All arguments are lower case.

bool isMonth(std::string_view word);
/// Whether a month or year may follow: "in", "of", "until".
bool introducesDate(std::string_view word);
/// The written form of a word in any context: "I'm", "Monday", "PDF", "Mr."; otherwise the word itself.
std::string writtenForm(const std::string& word);
bool isTitle(std::string_view word);
/// Whether a sentence that begins with these two words is a question.
bool opensQuestion(std::string_view first, std::string_view second);
/// Whether "period" after these two words means a span of time, not a full stop.
bool qualifiesPeriod(std::string_view beforeLast, std::string_view last);

std::string capitalised(std::string word);

} // namespace quillo::server
