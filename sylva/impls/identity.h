#pragma once

// The library's identity, shared by the public handles and the renderers.
namespace sylva::impls::identity {

inline constexpr char product[] = "Sylva";
inline constexpr char version[] = "1.2.5";
inline constexpr int build = 10205;
inline constexpr char copyright[] = "Sylva 1.2.5 - classification tree induction - (C) 2026 the arbor developers";

}  // namespace sylva::impls::identity
