// Everything norvane_core offers, in one include.
#pragma once

#include <norvane/application.hpp>
#include <norvane/cmdline.hpp>
#include <norvane/dispatcher.hpp>
#include <norvane/log.hpp>
#include <norvane/settings.hpp>
#include <norvane/standard_paths.hpp>
