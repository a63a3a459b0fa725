// A memory-mapped file written, then read back in blocks; and a buffer laid
// out in chunks taken in any order.
#include <norvane/io.hpp>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

int main() {
  const auto path = std::filesystem::temp_directory_path() / "norvane_example_io.txt";

  norvane::io_file out;
  out.open(path, norvane::io_device::out | norvane::io_device::trunc);
  for (int i = 0; i < 3; ++i) {
    const std::string line = "line " + std::to_string(i) + "\n";
    out.write(line.data(), static_cast<long>(line.size()));
  }
  out.close();  // cut back to the bytes written

  norvane::io_file in;
  in.open(path, norvane::io_device::in);
  if (!in.is_open()) {
    return 1;
  }
  char block[8];
  for (long long left = in.size(); left > 0 && in.is_good();) {
    const long n = static_cast<long>(std::min<long long>(left, sizeof block));
    in.read(block, n);
    std::fwrite(block, 1, static_cast<std::size_t>(n), stdout);
    left -= n;
  }
  in.close();
  std::filesystem::remove(path);

  // Logical chunk k lives in physical chunk ids[k].
  char memory[] = "worldhello";
  norvane::io_buffer chunks;
  chunks.open(memory, 10, {1, 0}, 5, norvane::io_device::in, false);
  char text[11] = {};
  chunks.read(text, 10);
  std::printf("%s\n", text);  // "helloworld"
  return 0;
}
