// Everything norvane_core offers, in one include.
#pragma once

#include <norvane/application.hpp>
#include <norvane/cmdline.hpp>
#include <norvane/dispatcher.hpp>
#include <norvane/hash.hpp>
#include <norvane/io.hpp>
#include <norvane/log.hpp>
#include <norvane/settings.hpp>
#include <norvane/standard_paths.hpp>
#include <norvane/status.hpp>
#include <norvane/strings.hpp>
#include <norvane/system_info.hpp>
#include <norvane/yaml.hpp>
