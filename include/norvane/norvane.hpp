// Everything norvane_core offers, in one include.
#pragma once

#include <norvane/log.hpp>
#include <norvane/status.hpp>
#include <norvane/strings.hpp>
#include <norvane/hash.hpp>
