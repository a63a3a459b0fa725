// Everything norvane_core offers, in one include.
#pragma once

#include <norvane/hash.hpp>
#include <norvane/io.hpp>
#include <norvane/log.hpp>
#include <norvane/status.hpp>
#include <norvane/strings.hpp>
#include <norvane/system_info.hpp>
#include <norvane/yaml.hpp>
