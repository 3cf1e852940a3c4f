// The answers to questions, as docs/serve.md has them: a text of JSON each. They throw Refusal, TimeIsUp, and Error for
// tables that cannot be read.
#pragma once

#include <string>

#include "tool/serve/question.h"

namespace tabulo::tool::serve {

std::string answerMessages(Question& question);
std::string answerMessage(Question& question);
std::string answerTimeline(Question& question);
std::string answerOrder(Question& question);
std::string answerBlocks(Question& question);
// The statement is the body of the request.
std::string answerSql(Question& question, const std::string& statement);

}  // namespace tabulo::tool::serve
