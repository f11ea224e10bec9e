#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

// A TCP port on 127.0.0.1 that nobody should ever call: hostile documents name it in their
// URLs, and the test asks afterwards whether anything knocked. The kernel queues a caller
// without the test accepting, so no event loop is needed while the program under test runs.
class SilentListener
{
public:
    SilentListener()
    {
        m_socket = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = 0;
        ::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(m_socket, 16);
        socklen_t length = sizeof address;
        ::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &length);
        m_port = ntohs(address.sin_port);
        ::fcntl(m_socket, F_SETFL, O_NONBLOCK);
    }
    ~SilentListener() { ::close(m_socket); }
    SilentListener(const SilentListener&) = delete;
    SilentListener& operator=(const SilentListener&) = delete;

    int port() const { return m_port; }
    bool listening() const { return m_port > 0; }

    // Whether anyone has connected since the listener opened.
    bool wasCalled()
    {
        const int client = ::accept(m_socket, nullptr, nullptr);
        if (client < 0)
            return false;
        ::close(client);
        return true;
    }

private:
    int m_socket = -1;
    int m_port = 0;
};
