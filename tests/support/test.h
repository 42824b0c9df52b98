// What most tests stand on.
#pragma once

#include "support/faults.h"
#include "support/handle.h"
#include "support/memory.h"
#include "support/peer.h"
#include "support/reports.h"
#include "support/rows.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;
using testing::ElementsAre;
using namespace std::string_literals;
