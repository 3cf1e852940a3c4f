// How much memory the verbs take: not more for a large table than for a small one.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tabulo/reader.h"
#include "tabulo/writer.h"
#include "tests/tool/tool_test.h"
#include "tool/console.h"
#include "tool/message_format.h"
#include "tool/times.h"

namespace tabulo::tool::test {

namespace {

using Words = std::vector<std::string>;

constexpr std::int64_t MIB = 1024 * 1024;
// What any verb may take; besides, it may keep so much for each distinct key, and the largest message.
constexpr std::int64_t ANY_VERB = 32 * MIB;
constexpr std::int64_t EACH_KEY = 100;

struct Usage {
    int status = -1;
    std::int64_t peak = 0;  // bytes of memory, those of shared files included
    std::string errors;
};

class MemoryTest : public ToolTest {
  protected:
    // Runs the command with nobody looking at its output.
    Usage measure(const Words& arguments) const {
        Words words{"tabulo"};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> pointers;
        for (std::string& word : words) {
            pointers.push_back(word.data());
        }
        pointers.push_back(nullptr);
        const std::string errors = file(".errors");
        const std::string folder = directory.path();
        const pid_t child = ::fork();
        if (child == 0) {
            ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
            ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666), STDERR_FILENO);
            if (::chdir(folder.c_str()) == 0) {
                ::execv(TABULO_COMMAND, pointers.data());
            }
            ::_exit(121);
        }
        int status = 0;
        struct rusage usage {};
        EXPECT_EQ(::wait4(child, &status, 0, &usage), child);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 256, std::int64_t{usage.ru_maxrss} * 1024, readText(errors)};
    }

    void expectAtMost(std::int64_t most, const std::vector<Words>& commands) const {
        for (const Words& arguments : commands) {
            std::string command;
            for (const std::string& word : arguments) {
                command += " " + word;
            }
            const Usage usage = measure(arguments);
            EXPECT_EQ(usage.status, 0) << command << ": " << usage.errors;
            EXPECT_LE(usage.peak, most) << command << " took " << static_cast<double>(usage.peak) / MIB << " MiB";
        }
    }
};

// Order messages 1 to `messages` with a wire message of about a kilobyte each, a minute apart; a process of its own
// writes them, so that this one, of which every command begins as a copy, stays small.
void writeLarge(const std::string& path, int messages, std::int32_t messagesPerBlock = 1000) {
    const int result = internal::test::runInChild([&] {
        const Layout layout = ordersLayout(messagesPerBlock);
        Writer writer = Writer::create(path, layout);
        std::vector<std::byte> frames;
        for (int n = 1; n <= messages; ++n) {
            OrderMessage order(n);
            const std::string wire = std::string(*order.message.wire) + std::string(900, 'x');
            order.message.wire = wire;
            order.message.time = orderTime(1) + std::int64_t{n} * 60'000;
            encode(order.message, layout, frames);
            if (n % 1000 == 0 || n == messages) {
                writer.appendFrames(frames);
                frames.clear();
            }
        }
        writer.close();
        return 0;
    });
    ASSERT_EQ(result, 0);
}

}  // namespace

TEST_F(MemoryTest, AHundredMegabytesTakeNoMoreThanAnyTable) {
    constexpr int MESSAGES = 100'000;
    writeLarge(file("orders"), MESSAGES);
    ASSERT_GT(std::filesystem::file_size(file("orders")), 100'000'000U);
    expectAtMost(ANY_VERB, {
                               {"ls"},
                               {"info", "orders"},
                               {"blocks", "orders"},
                               {"cat", "orders", "-o", "text"},
                               {"cat", "orders", "-o", "raw"},
                               {"cat", "orders", "-o", "ndjson", "--reverse"},
                               {"cat", "orders", "-o", "csv", "--where", "Symbol=ACME"},
                               {"tail", "-n", "50000", "orders"},
                               {"tail", "--state", "state", "orders"},
                               {"stats", "orders", "--by", "type,class"},
                               {"order", "order-7", "orders"},
                               {"verify", "orders"},
                               {"recover", "orders", "--dry-run"},
                               {"recover", "orders", "--to", "recovered"},
                               {"export", "orders", "--to", "orders.csv"},
                               {"backup", "orders", "--to", "copies"},
                               {"split", "orders", "--by", "day", "--to", "days"},
                           });
}

TEST_F(MemoryTest, LargeBlocksTakeNoMoreThanSmallOnes) {
    writeLarge(file("orders"), 100'000, 100'000);
    expectAtMost(ANY_VERB, {
                               {"cat", "orders", "-o", "raw"},
                               {"cat", "orders", "-o", "raw", "--reverse"},
                               {"tail", "orders"},
                               {"verify", "orders"},
                               {"recover", "orders", "--dry-run"},
                           });
}

TEST_F(MemoryTest, DistinctKeysTakeAHundredBytesEach) {
    constexpr int MESSAGES = 400'000;
    writeLarge(file("orders"), MESSAGES / 4);
    expectAtMost(ANY_VERB + EACH_KEY * MESSAGES / 8, {
                                                         {"stats", "orders", "--by", "field:ClOrdID"},
                                                         {"stats", "orders", "--by", "minute", "-o", "ndjson"},
                                                     });
}

TEST_F(MemoryTest, ALargeMessageIsInMemoryOnce) {
    constexpr std::int64_t LARGE = 40 * MIB;
    const int result = internal::test::runInChild([&] {
        Writer writer = Writer::create(file("orders"), ordersLayout());
        OrderMessage before(1);
        OrderMessage large(2);
        OrderMessage behind(3);
        std::string wire = "8=FIX.4.4\00135=8\00111=order-1\00158=";
        wire.append(static_cast<std::size_t>(LARGE), 'x');
        for (std::size_t i = 100; i < wire.size(); i += 50) {
            wire[i] = '\1';
        }
        large.message.wire = wire;
        writer.append(before.message);
        writer.append(large.message);
        writer.append(behind.message);
        writer.close();
        return 0;
    });
    ASSERT_EQ(result, 0);
    expectAtMost(ANY_VERB + LARGE, {
                                       {"ls"},
                                       {"info", "orders"},
                                       {"blocks", "orders"},
                                       {"cat", "orders", "-o", "text"},
                                       {"cat", "orders", "-o", "text", "--long"},
                                       {"cat", "orders", "-o", "fix"},
                                       {"cat", "orders", "-o", "raw", "--reverse"},
                                       {"cat", "orders", "-o", "ndjson"},
                                       {"cat", "orders", "-o", "csv"},
                                       {"tail", "-n", "2", "orders"},
                                       {"tail", "--state", "state", "orders"},
                                       {"stats", "orders", "--by", "type"},
                                       {"order", "order-1", "orders"},
                                       {"verify", "orders"},
                                       {"recover", "orders", "--dry-run"},
                                       {"export", "orders", "--to", "orders.ndjson"},
                                       {"recover", "orders", "--to", "recovered"},
                                       {"backup", "orders", "--to", "copies"},
                                       {"split", "orders", "--by", "day", "--to", "days"},
                                   });
}

TEST_F(MemoryTest, ALargeMessageIsPrintedInPiecesAsItWouldBeAsAWhole) {
    // Characters of two to four bytes, bytes that are none, quotes and SOH, so that pieces end between and inside them.
    std::string wire = "8=FIX.4.4\00135=B\00196=";
    std::string text;
    for (int n = 0; n < 40'000; ++n) {
        text += n % 7 == 0 ? "\xC3\xA4" : n % 7 == 1 ? "\xE2\x82\xAC" : n % 7 == 2 ? "\xF0\x9F\x98\x80" : "\"x,\t";
    }
    for (const bool isUtf8 : {true, false}) {
        const std::string name = isUtf8 ? "text" : "bytes";
        Writer writer = Writer::create(file(name), {.texts = {"Long"}});
        Message message;
        message.type = "B";
        const std::string body = isUtf8 ? text : text + std::string(200'000, '\x80') + text;
        const std::string whole = wire + body + '\1';
        message.wire = message.nonMetadata = whole;
        message.texts = {body};
        writer.append(message);
        writer.close();
        const MessageCopy copy(*Reader(file(name)).messages().begin());
        PrinterOptions options;
        Console console;
        const Times times({"ms", ""}, 1, console);
        options.times = &times;
        const Layout layout{.texts = {"Long"}};
        options.layouts = {&layout};
        for (const MessageFormat format :
             {MessageFormat::raw, MessageFormat::fix, MessageFormat::text, MessageFormat::ndjson, MessageFormat::csv}) {
            for (const bool isLong : {false, format == MessageFormat::text}) {
                std::string atOnce;
                std::string inPieces;
                std::string out;
                std::size_t largest = 0;
                options.longForm = isLong;
                options.spill = {};
                makePrinter(format, options)(copy.view(), &atOnce);
                options.spill = [&](std::string* printed) {
                    largest = std::max(largest, printed->size());
                    inPieces += *printed;
                    printed->clear();
                };
                makePrinter(format, options)(copy.view(), &out);
                EXPECT_TRUE(inPieces + out == atOnce) << name << ", format " << static_cast<int>(format) << isLong;
                EXPECT_LT(std::max(largest, out.size()), 500'000U) << "format " << static_cast<int>(format);
            }
        }
    }
}

}  // namespace tabulo::tool::test
