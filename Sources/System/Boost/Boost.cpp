// The parts of Asio and Beast that need to be compiled only once.
#include <boost/asio/impl/src.hpp>
#include <boost/beast/src.hpp>
