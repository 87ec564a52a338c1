#pragma once

// Asio 1.74 uses std::exchange without including it.
#include <utility>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

namespace quillo::server {

namespace asio = boost::asio;
using Tcp = asio::ip::tcp;

} // namespace quillo::server
