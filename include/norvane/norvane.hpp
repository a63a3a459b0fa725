// Everything norvane_core offers, in one include.
#pragma once

#include <norvane/log.hpp>
#include <norvane/yaml.hpp>
