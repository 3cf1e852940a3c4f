// An exchange that acknowledges and fills every order. C++14.
#pragma once

#include <string>

#include <quickfix/Application.h>
#include <quickfix/Session.h>

#include "examples/quickfix/book.h"
#include "examples/quickfix/sent_messages.h"

// Counts each order once, and answers it with a report that it is new and one that it is filled. An order that comes
// again (the process was killed before the engine had counted the message) is dropped, but for the reports that are
// still missing in the store.
class Exchange : public FIX::NullApplication {
  public:
    // `folder` is the TabuloStorePath, `book` a file of the ClOrdIDs that were counted.
    Exchange(const std::string& folder, const std::string& book) : sent_(folder), orders_(book) {}

    void fromApp(const FIX::Message& message,
                 const FIX::SessionID& session) throw(FIX::FieldNotFound, FIX::IncorrectDataFormat,
                                                      FIX::IncorrectTagValue, FIX::UnsupportedMessageType) override {
        if (message.getHeader().getField(FIX::FIELD::MsgType) != "D") {
            throw FIX::UnsupportedMessageType();
        }
        const std::string order = message.getField(FIX::FIELD::ClOrdID);
        const bool isNew = orders_.add(order);
        answer(message, session, isNew, "0", order + "-new");
        answer(message, session, isNew, "2", order + "-fill");
    }

  private:
    void answer(const FIX::Message& order, const FIX::SessionID& session, bool isNew, const char* status,
                const std::string& execId) const {
        const std::string clOrdId = order.getField(FIX::FIELD::ClOrdID);
        if (!isNew && sent_.has(session.getSenderCompID(), session.getTargetCompID(), "8", clOrdId, execId)) {
            return;
        }
        const bool filled = *status == '2';
        const std::string quantity = order.getField(FIX::FIELD::OrderQty);
        FIX::Message report;
        report.getHeader().setField(FIX::FIELD::MsgType, "8");
        report.setField(FIX::FIELD::ClOrdID, clOrdId);
        report.setField(FIX::FIELD::OrderID, "X" + clOrdId);
        report.setField(FIX::FIELD::ExecID, execId);
        if (session.getBeginString().getString() == "FIX.4.2") {
            report.setField(FIX::FIELD::ExecTransType, "0");
            report.setField(FIX::FIELD::ExecType, status);
        } else {
            report.setField(FIX::FIELD::ExecType, filled ? "F" : "0");
        }
        report.setField(FIX::FIELD::OrdStatus, status);
        report.setField(FIX::FIELD::Symbol, order.getField(FIX::FIELD::Symbol));
        report.setField(FIX::FIELD::Side, order.getField(FIX::FIELD::Side));
        report.setField(FIX::FIELD::OrderQty, quantity);
        if (filled) {
            report.setField(FIX::FIELD::LastQty, quantity);
            report.setField(FIX::FIELD::LastPx, order.getField(FIX::FIELD::Price));
        }
        report.setField(FIX::FIELD::LeavesQty, filled ? "0" : quantity);
        report.setField(FIX::FIELD::CumQty, filled ? quantity : "0");
        report.setField(FIX::FIELD::AvgPx, filled ? order.getField(FIX::FIELD::Price) : "0");
        FIX::Session::sendToTarget(report, session);
    }

    SentMessages sent_;
    Book orders_;
};
