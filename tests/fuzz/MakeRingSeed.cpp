// Writes the seed of the ring-file fuzzer: a small file with one short ring at each of levels 0,
// 5 and 6, holding records with values of several kinds. The description table is cut down to
// what it holds, so that the fuzzer mutates what matters.  Usage: make-ring-seed FILE
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "trace/DualLog.h"
#include "types/Lanx.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make-ring-seed FILE\n");
    return 2;
  }
  RingLog::SizeSpec sizes;
  sizes.size[0] = sizes.size[5] = sizes.size[6] = 1;
  std::unique_ptr<RingLog::TraceHandle> rl(RingLog::initialize_handle(argv[1], &sizes, ".", 0, 0));
  if (!rl->file()) {
    std::fprintf(stderr, "make-ring-seed: %s\n", rl->error().c_str());
    return 1;
  }
  for (std::uint32_t i = 0; i < 6; ++i) {
    DUAL_LOG(rl.get(), nullptr, 5, "handler {name} entry {i}", Brix::String("Vxlan1"), i);
    DUAL_LOG(rl.get(), nullptr, 6, " Add {addr} {mac}", Lanx::IpGenAddr(Lanx::IpAddr(0x0a000001u + i)),
             Lanx::EthAddr(0x0200, 0, static_cast<std::uint16_t>(i)));
    DUAL_LOG(rl.get(), nullptr, 0, "flag {b} ratio {d}", i % 2 == 0, 0.5 * i);
  }
  rl.reset();

  namespace F = RingLog::Format;
  std::string bytes;
  {
    std::ifstream in(argv[1], std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  F::FileHeader h;
  std::memcpy(&h, bytes.data(), sizeof h);
  std::uint64_t const cut = h.descCapacity - F::align8(h.descUsed);
  std::string out = bytes.substr(0, h.descOffset + F::align8(h.descUsed)) + bytes.substr(h.descOffset + h.descCapacity);
  h.descCapacity -= cut;
  h.fileSize = out.size();
  for (auto& ring : h.rings) {
    if (ring.capacity != 0) ring.offset -= cut;
  }
  std::memcpy(out.data(), &h, sizeof h);
  std::ofstream(argv[1], std::ios::binary | std::ios::trunc) << out;
  return 0;
}
