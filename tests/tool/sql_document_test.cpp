// The questions of docs/sql.md about the recorded days, asked as they stand there: the answers are those that it shows.

#include <string>
#include <vector>

#include "tests/tool/command_document.h"
#include "tests/tool/recorded_session.h"
#include "tests/tool/tool_test.h"

namespace tabulo::tool::test {

namespace {

struct Question {
    std::string statement;
    std::string answer;
};

// What stands between ``` and a language, and the ``` that ends it.
std::string blockBehind(const std::string& text, const std::string& language, std::size_t* place) {
    const std::string head = "```" + language + "\n";
    const std::size_t begin = text.find(head, *place);
    if (begin == std::string::npos) {
        *place = begin;
        return "";
    }
    const std::size_t end = text.find("```", begin + head.size());
    *place = end;
    return text.substr(begin + head.size(), end - begin - head.size());
}

std::vector<Question> questionsIn(const std::string& text) {
    std::vector<Question> questions;
    for (std::size_t place = text.find("\n### 1. "); place != std::string::npos;) {
        Question question;
        const std::size_t next = text.find("```text\n", place);
        question.statement = next == std::string::npos ? "" : blockBehind(text, "sql", &place);
        if (next == std::string::npos) {
            break;
        }
        question.answer = blockBehind(text, "text", &place);
        questions.push_back(question);
    }
    return questions;
}

using SqlDocument = ToolTest;

}  // namespace

TEST_F(SqlDocument, ShowsTheAnswersThatItsQuestionsGet) {
    const Layout layout{.texts = {"ClOrdID", "Symbol"}, .numbers = {}, .messagesPerBlock = 200};
    const std::int32_t next = makeRecorded(file("day1"), "client-day1", layout);
    makeRecorded(file("day2"), "client-day2", layout, next);
    CommandSettings settings;
    settings.directory = directory.path();
    const std::vector<Question> questions = questionsIn(readText(TABULO_SOURCE_DIRECTORY "/docs/sql.md"));
    EXPECT_GE(questions.size(), 10U);
    for (const Question& question : questions) {
        internal::test::writeFile(file("question"), Bytes(question.statement.begin(), question.statement.end()));
        const ProgramResult result = runScript("\"$TABULO\" sql \"$(cat question)\" day1 day2", settings);
        EXPECT_EQ(result.output, question.answer) << question.statement;
        EXPECT_EQ(result.status, 0) << question.statement << result.errors;
    }
}

}  // namespace tabulo::tool::test
