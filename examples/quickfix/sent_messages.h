// What an engine has sent, as its tables say. C++14 can include it: the source is C++20 and sees none of the engine's
// headers.
#pragma once

#include <string>
#include <utility>

// Looks into the message tables of a folder (TabuloStorePath). A message that the engine has accepted for sending
// stands there before it goes out, and is repeated by the engine itself when the counterparty has missed it: what is
// found here must not be sent again. Any number of threads.
class SentMessages {
  public:
    explicit SentMessages(std::string folder) : folder_(std::move(folder)) {}

    // Whether a message of this type (35) about this order (11) has been given to the engine for sending by `sender`
    // (49) to `target` (56); with this ExecID (17) unless it is empty. std::runtime_error when a table cannot be read.
    bool has(const std::string& sender, const std::string& target, const std::string& type, const std::string& clOrdId,
             const std::string& execId = "") const;

  private:
    std::string folder_;
};
