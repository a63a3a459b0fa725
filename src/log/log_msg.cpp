// log_msg: one spdlog record wrapped for the public interface.
#include <norvane/log.hpp>

#include <spdlog/details/log_msg.h>

namespace norvane {

log_msg::log_msg(std::string_view logger_name, log_level level, std::string_view payload)
    : impl_(new spdlog::details::log_msg(spdlog::string_view_t(logger_name.data(), logger_name.size()),
                                         static_cast<spdlog::level::level_enum>(level),
                                         spdlog::string_view_t(payload.data(), payload.size()))) {}

log_msg::~log_msg() = default;

}  // namespace norvane
