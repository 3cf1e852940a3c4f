// A client that sends numbered orders and counts the reports about them. C++14.
#pragma once

#include <string>

#include <quickfix/Application.h>
#include <quickfix/Session.h>

#include "examples/quickfix/book.h"
#include "examples/quickfix/sent_messages.h"

// Decides on an order by a line in a book, then gives it to the engine. When it was killed in between, the store tells
// whether the engine has the order: only when it does not is it sent again. A report that comes again is dropped.
class Client : public FIX::NullApplication {
  public:
    // `folder` is the TabuloStorePath, `orders` and `reports` files of the ClOrdIDs that were decided on and of the
    // ExecIDs that were counted.
    Client(const std::string& folder, const std::string& orders, const std::string& reports)
        : sent_(folder), orders_(orders), reports_(reports) {}

    // After a start, and before the next order: the newest order is sent unless the store has it.
    void sendUnsent(const FIX::SessionID& session) {
        const std::string& order = orders_.last();
        if (!order.empty() && !sent_.has(session.getSenderCompID(), session.getTargetCompID(), "D", order)) {
            send(order, session);
        }
    }

    // Sends the next order, and says which. An engine that is not connected keeps it until it is.
    std::string sendNext(const FIX::SessionID& session) {
        const std::string order = session.getSenderCompID().getString() + "-" + std::to_string(orders_.size() + 1);
        orders_.add(order);
        send(order, session);
        return order;
    }

    void fromApp(const FIX::Message& message, const FIX::SessionID&) throw(FIX::FieldNotFound, FIX::IncorrectDataFormat,
                                                                           FIX::IncorrectTagValue,
                                                                           FIX::UnsupportedMessageType) override {
        if (message.getHeader().getField(FIX::FIELD::MsgType) == "8") {
            reports_.add(message.getField(FIX::FIELD::ExecID));
        }
    }

  private:
    static void send(const std::string& clOrdId, const FIX::SessionID& session) {
        FIX::Message order;
        order.getHeader().setField(FIX::FIELD::MsgType, "D");
        order.setField(FIX::FIELD::ClOrdID, clOrdId);
        order.setField(FIX::FIELD::Account, "EXAMPLE");
        order.setField(FIX::FIELD::HandlInst, "1");
        order.setField(FIX::FIELD::Symbol, "TBLO");
        order.setField(FIX::FIELD::Side, "1");
        order.setField(FIX::FIELD::TransactTime, FIX::UtcTimeStampConvertor::convert(FIX::UtcTimeStamp(), 3));
        order.setField(FIX::FIELD::OrderQty, "100");
        order.setField(FIX::FIELD::OrdType, "2");
        order.setField(FIX::FIELD::Price, "12.5");
        FIX::Session::sendToTarget(order, session);
    }

    SentMessages sent_;
    Book orders_;
    Book reports_;
};
