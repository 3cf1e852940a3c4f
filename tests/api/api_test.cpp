#include "tests/api/api_test.h"

namespace tabulo::test {

Layout ordersLayout(std::int32_t messagesPerBlock) {
    return {.texts = {"Symbol", "ClOrdID"}, .numbers = {"Price", "OrderQty"}, .messagesPerBlock = messagesPerBlock};
}

SimpleMessage::SimpleMessage(std::int32_t n) {
    const std::string number = std::to_string(n);
    texts_ = {"symbol-" + number, "order-" + number, "35=D\00134=" + number + "\001", "extra " + number, "t" + number};
    message.uniformId = n;
    message.seqNum = n;
    message.id = n;
    message.time = std::int64_t{1000} * n;
    message.type = "D";
    message.possDup = n % 5 == 0;
    message.texts = {n % 3 == 0 ? Text() : Text(texts_[0]), Text(texts_[1])};
    message.numbers = {n % 4 == 0 ? Number() : Number(n * 0.5), Number(std::int64_t{100} * n)};
    message.wire = texts_[2];
    message.nonMetadata = texts_[3];
    message.text0 = texts_[4];
}

std::vector<std::byte> simpleFrames(const Layout& layout, std::int32_t first, std::int32_t last) {
    std::vector<std::byte> frames;
    for (std::int32_t n = first; n <= last; ++n) {
        encode(SimpleMessage(n).message, layout, frames);
    }
    return frames;
}

}  // namespace tabulo::test
