#include "zelka_core/varlink/varlink_client.h"

#include <string_view>
#include <utility>
#include <vector>

#include "platform/local_socket.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kReadSize = 65'536;

}  // namespace

std::error_code VarlinkClient::Connect(const std::string& path) {
    if (const auto error = m_poller.Open()) {
        return error;
    }
    m_reader = VarlinkReader(kLargestReply);
    return ConnectLocal(path, m_connection);
}

std::error_code VarlinkClient::Send(const VarlinkCall& call) {
    const std::string message = WriteVarlink(call);
    std::string_view rest = message;
    while (!rest.empty()) {
        std::size_t sent = 0;
        const auto error = SendSome(m_connection.Get(), rest, sent);
        if (error == std::errc::broken_pipe || error == std::errc::connection_reset) {
            return {};
        }
        if (error) {
            return error;
        }
        rest.remove_prefix(sent);
        if (const auto late =
                sent == 0 ? Await(Poller::kWritable, std::nullopt) : std::error_code()) {
            return late;
        }
    }
    return {};
}

std::error_code VarlinkClient::Receive(VarlinkReply& reply, const Deadline& deadline) {
    for (;;) {
        if (const auto message = m_reader.Next()) {
            std::string fault;
            return ReadVarlinkReply(*message, reply, fault)
                       ? std::error_code()
                       : std::make_error_code(std::errc::protocol_error);
        }
        if (m_reader.IsTooLong()) {
            return std::make_error_code(std::errc::message_size);
        }
        std::string bytes;
        bool isOver = false;
        if (const auto error = ReceiveSome(m_connection.Get(), kReadSize, bytes, isOver)) {
            return error;
        }
        if (isOver) {
            return std::make_error_code(std::errc::connection_reset);
        }
        m_reader.Add(bytes);
        if (bytes.empty()) {
            if (const auto error = Await(Poller::kReadable, deadline)) {
                return error;
            }
        }
    }
}

std::error_code VarlinkClient::Await(unsigned events, const Deadline& deadline) {
    if (const auto error = m_poller.Arm(m_connection.Get(), events)) {
        return error;
    }
    std::vector<Poller::Ready> ready;
    if (const auto error = m_poller.Wait(deadline, ready)) {
        return error;
    }
    return ready.empty() ? std::make_error_code(std::errc::timed_out) : std::error_code();
}

}  // namespace ZelkaCore
