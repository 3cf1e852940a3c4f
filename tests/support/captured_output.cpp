#include "tests/support/captured_output.h"

#include <fcntl.h>
#include <unistd.h>

#include "tests/support/bytes.h"

namespace tabulo::internal::test {

CapturedOutput::CapturedOutput(std::FILE* stream) : stream_(stream), descriptor_(::fileno(stream)) {
    std::fflush(stream_);
    original_ = ::fcntl(descriptor_, F_DUPFD_CLOEXEC, 0);
    const int opened = ::open(directory_.file("output").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    ::dup2(opened, descriptor_);
    ::close(opened);
}

CapturedOutput::~CapturedOutput() {
    std::fflush(stream_);
    ::dup2(original_, descriptor_);
    ::close(original_);
}

std::string CapturedOutput::text() const {
    std::fflush(stream_);
    return readText(directory_.file("output"));
}

}  // namespace tabulo::internal::test
