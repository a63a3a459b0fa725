// Everything norvane_core offers, in one include.
#pragma once

#include <norvane/io.hpp>
#include <norvane/log.hpp>
#include <norvane/system_info.hpp>
