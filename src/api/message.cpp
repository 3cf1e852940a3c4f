#include "tabulo/message.h"

#include <algorithm>
#include <array>
#include <utility>

#include "api/call.h"
#include "api/layout.h"
#include "api/message_state.h"
#include "messagetable/frame.h"
#include "messagetable/frame_place.h"
#include "messagetable/message_class.h"
#include "messagetable/string_field.h"

namespace tabulo {

namespace {

constexpr std::array<std::string_view, messageClassCount> CLASS_NAMES = {"APP_FROM", "APP_TO", "ADMIN_FROM", "ADMIN_TO",
                                                                         "RESENT"};

Text textOf(const internal::StringField& field) {
    return field.length <= 0 ? Text() : Text(internal::stringField_withoutNul(field));
}

// The string field `slot`, or the one so many from the end; absent where there is none.
Text slotText(const api::MessageState& state, std::int32_t slot) {
    return slot < 0 || slot >= state.table->numbers.stringFieldCount
               ? Text()
               : textOf(state.message->stringFields[static_cast<std::size_t>(slot)]);
}

Text slotTextFromEnd(const api::MessageState& state, std::int32_t back) {
    return slotText(state, state.table->numbers.stringFieldCount - back);
}

std::size_t fieldNamed(std::string_view kind, std::string_view name, const std::vector<std::string>& names) {
    const auto found = std::find(names.begin(), names.end(), name);
    const bool several = found != names.end() && std::find(found + 1, names.end(), name) != names.end();
    if (found != names.end() && !several && !name.empty()) {
        return static_cast<std::size_t>(found - names.begin());
    }
    std::string detail = several ? "more than one " : "no ";
    detail.append(kind).append(" of the table is named '").append(name).append("'; it has ");
    for (const std::string& known : names) {
        detail.append("'").append(known).append("', ");
    }
    api::refuse(detail.append("in all ").append(std::to_string(names.size())));
}

void checkIndex(std::size_t index, std::size_t count) {
    if (index >= count) {
        api::refuse(Code::indexOutOfBounds,
                    "the field " + std::to_string(index) + " of " + std::to_string(count) + " was asked for");
    }
}

}  // namespace

std::optional<MessageClass> classOf(std::int32_t id) noexcept {
    const internal::MessageClass found = internal::classifyConnMsgId(id);
    return found == internal::NO_MESSAGE_CLASS ? std::nullopt : std::optional(static_cast<MessageClass>(found));
}

std::int32_t firstId(MessageClass messageClass) noexcept {
    return internal::connMsgClassFirstId(static_cast<internal::MessageClass>(messageClass));
}

std::int32_t lastId(MessageClass messageClass) noexcept {
    return internal::connMsgClassLastId(static_cast<internal::MessageClass>(messageClass));
}

std::string_view className(MessageClass messageClass) noexcept {
    const auto index = static_cast<std::size_t>(messageClass);
    return index < CLASS_NAMES.size() ? CLASS_NAMES[index] : "";
}

std::optional<MessageClass> classNamed(std::string_view name) noexcept {
    const auto found = std::find(CLASS_NAMES.begin(), CLASS_NAMES.end(), name);
    return found == CLASS_NAMES.end() ? std::nullopt
                                      : std::optional(static_cast<MessageClass>(found - CLASS_NAMES.begin()));
}

std::int32_t MessageView::uniformId() const noexcept {
    return state_->message->metadata.uniformId;
}

std::int32_t MessageView::seqNum() const noexcept {
    return state_->message->metadata.seqNum;
}

std::int32_t MessageView::prevSeqNum() const noexcept {
    return state_->message->metadata.prevSeqNum;
}

std::int32_t MessageView::id() const noexcept {
    return state_->message->metadata.connMsgId;
}

std::optional<MessageClass> MessageView::messageClass() const noexcept {
    return classOf(id());
}

std::int64_t MessageView::time() const noexcept {
    return state_->message->metadata.timestamp;
}

std::string_view MessageView::type() const noexcept {
    return state_->message->metadata.msgType.data();
}

bool MessageView::possDup() const noexcept {
    return state_->message->metadata.isPossDupFlag != 0;
}

bool MessageView::outOfSequence() const noexcept {
    return state_->message->metadata.isOutOfSequence != 0;
}

Text MessageView::text0() const noexcept {
    return state_->table->numbers.stringFieldCount < 3 ? Text() : slotText(*state_, 0);
}

Text MessageView::text1() const noexcept {
    return state_->table->numbers.stringFieldCount < 4 ? Text() : slotText(*state_, 1);
}

std::size_t MessageView::textCount() const noexcept {
    return state_->table->layout.texts.size();
}

std::size_t MessageView::numberCount() const noexcept {
    return state_->table->layout.numbers.size();
}

Text MessageView::text(std::size_t index) const {
    checkIndex(index, textCount());
    return slotText(*state_, internal::LEADING_BUILT_IN_STRING_FIELDS + static_cast<std::int32_t>(index));
}

Text MessageView::text(std::string_view name) const {
    return text(api::layout_textNamed(state_->table->layout, name));
}

Number MessageView::number(std::size_t index) const {
    checkIndex(index, numberCount());
    const internal::NumericValue& value = state_->message->numericFields[index];
    switch (value.type) {
        case internal::NumericType::doubleValue:
            return value.doubleValue;
        case internal::NumericType::longValue:
            return value.longValue;
        default:
            return std::monostate();
    }
}

Number MessageView::number(std::string_view name) const {
    return number(api::layout_numberNamed(state_->table->layout, name));
}

Text MessageView::wire() const noexcept {
    return slotTextFromEnd(*state_, 2);
}

Text MessageView::nonMetadata() const noexcept {
    return slotTextFromEnd(*state_, 1);
}

std::span<const std::byte> MessageView::frame() const noexcept {
    return {state_->frame, static_cast<std::size_t>(state_->message->frameLength)};
}

const Layout& MessageView::layout() const noexcept {
    return state_->table->layout;
}

std::string_view MessageView::table() const noexcept {
    return state_->table->name;
}

std::size_t MessageView::tableIndex() const noexcept {
    return state_->table->index;
}

Position MessageView::position() const noexcept {
    return state_->position;
}

Position MessageView::next() const noexcept {
    return api::messageState_next(*state_);
}

std::int64_t MessageView::ordinal() const {
    const api::BlockCounter& counter = state_->counter;
    if (state_->blockOrdinal < 0 && counter.blocksBefore != nullptr) {
        state_->blockOrdinal = counter.blocksBefore(counter.owner.get(), state_->position.block);
    }
    return state_->blockOrdinal * state_->table->numbers.messagesPerBlock + state_->indexInBlock;
}

namespace api {

std::size_t layout_textNamed(const Layout& layout, std::string_view name) {
    return fieldNamed("text", name, layout.texts);
}

std::size_t layout_numberNamed(const Layout& layout, std::string_view name) {
    return fieldNamed("number", name, layout.numbers);
}

Position messageState_next(const MessageState& state) noexcept {
    const internal::FramePlace next =
        internal::framePlace_behind(state.position.block, state.position.offset + state.message->frameLength,
                                    state.indexInBlock + 1, state.table->numbers, state.table->footerSize);
    return {next.block, next.frame};
}

}  // namespace api

namespace {

// Decodes the frame that the state holds; it must be all that there is.
void decodeCopy(api::MessageCopyState* state) {
    api::MessageState& message = state->message;
    message.frame = state->frame.data();
    const auto length = static_cast<std::int64_t>(state->frame.size());
    const api::Call call;
    call.check(internal::mfr_decodeFrame(reinterpret_cast<const std::uint8_t*>(message.frame), length,
                                         message.table->numbers, &state->decoded));
    message.message = &state->decoded;
    if (state->decoded.frameLength != length) {
        call.fail(internal::NO_DATA_ERROR, state->decoded.frameLength, "something stands behind the frame");
    }
}

}  // namespace

MessageCopy::MessageCopy(const MessageView& message) : state_(std::make_unique<api::MessageCopyState>()) {
    const std::span<const std::byte> frame = message.frame();
    state_->frame.assign(frame.begin(), frame.end());
    state_->message = message.state();
    decodeCopy(state_.get());
}

MessageCopy::MessageCopy(std::span<const std::byte> frame, const Layout& layout)
    : state_(std::make_unique<api::MessageCopyState>()) {
    auto table = std::make_shared<api::TableState>();
    table->numbers = api::layout_numbers(layout);
    table->layout = layout;
    state_->message.table = std::move(table);
    state_->message.blockOrdinal = 0;
    state_->frame.assign(frame.begin(), frame.end());
    decodeCopy(state_.get());
}

MessageCopy::MessageCopy(MessageCopy&&) noexcept = default;
MessageCopy& MessageCopy::operator=(MessageCopy&&) noexcept = default;
MessageCopy::~MessageCopy() = default;

MessageView MessageCopy::view() const {
    return MessageView(&api::use(state_, "the copy of a message").message);
}

}  // namespace tabulo
