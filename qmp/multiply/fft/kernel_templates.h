// The butterflies of the transform written once over a vector-traits type T and instantiated by
// each kernels_*.cpp inside an anonymous namespace (after its target pragma), so every
// instruction-set level gets its own copy of the same arithmetic. T provides V (W doubles),
// ld/st/bc, add/sub/mul, fmadd(a,b,c) = a*b+c, fmsub(a,b,c) = a*b-c, and the in-block levels.
// Included only by kernels_*.cpp; it includes nothing itself (the caller has the headers).

template <class T>
struct Kernels {
    using V = typename T::V;
    static constexpr int NV = 8 / T::W;  // vectors per re[] or im[] of a block

    // (xr, xi) * (sr, si)
    static inline void cmul(V& xr, V& xi, V sr, V si) {
        const V r = T::fmsub(xr, sr, T::mul(xi, si));
        const V i = T::fmadd(xr, si, T::mul(xi, sr));
        xr = r;
        xi = i;
    }
    // (xr, xi) * conj(sr, si)
    static inline void cmul_conj(V& xr, V& xi, V sr, V si) {
        const V r = T::fmadd(xr, sr, T::mul(xi, si));
        const V i = T::fmsub(xi, sr, T::mul(xr, si));
        xr = r;
        xi = i;
    }

    // (a, b) -> (a + s b, a - s b) on whole blocks.
    static inline void dif2(Block* a, Block* b, Cplx s) {
        const V sr = T::bc(s.re), si = T::bc(s.im);
        for (int v = 0; v < NV; ++v) {
            V yr = T::ld(b->re + v * T::W), yi = T::ld(b->im + v * T::W);
            cmul(yr, yi, sr, si);
            const V xr = T::ld(a->re + v * T::W), xi = T::ld(a->im + v * T::W);
            T::st(a->re + v * T::W, T::add(xr, yr));
            T::st(a->im + v * T::W, T::add(xi, yi));
            T::st(b->re + v * T::W, T::sub(xr, yr));
            T::st(b->im + v * T::W, T::sub(xi, yi));
        }
    }
    // Inverse of dif2 without the factor 1/2: (a, b) -> (a + b, (a - b) conj(s)).
    static inline void dit2(Block* a, Block* b, Cplx s) {
        const V sr = T::bc(s.re), si = T::bc(s.im);
        for (int v = 0; v < NV; ++v) {
            const V xr = T::ld(a->re + v * T::W), xi = T::ld(a->im + v * T::W);
            const V yr = T::ld(b->re + v * T::W), yi = T::ld(b->im + v * T::W);
            V dr = T::sub(xr, yr), di = T::sub(xi, yi);
            cmul_conj(dr, di, sr, si);
            T::st(a->re + v * T::W, T::add(xr, yr));
            T::st(a->im + v * T::W, T::add(xi, yi));
            T::st(b->re + v * T::W, dr);
            T::st(b->im + v * T::W, di);
        }
    }

    // Two levels at once on blocks a0..a3 (quarters of one group): s splits the group, s1 its
    // first child; the second child's twiddle is i*s1 (a quarter turn further), applied exactly.
    static inline void dif4(Block* a0, Block* a1, Block* a2, Block* a3, Cplx s, Cplx s1) {
        const V sr = T::bc(s.re), si = T::bc(s.im), tr = T::bc(s1.re), ti = T::bc(s1.im);
        for (int v = 0; v < NV; ++v) {
            const int o = v * T::W;
            V x2r = T::ld(a2->re + o), x2i = T::ld(a2->im + o);
            V x3r = T::ld(a3->re + o), x3i = T::ld(a3->im + o);
            cmul(x2r, x2i, sr, si);
            cmul(x3r, x3i, sr, si);
            const V x0r = T::ld(a0->re + o), x0i = T::ld(a0->im + o);
            const V x1r = T::ld(a1->re + o), x1i = T::ld(a1->im + o);
            const V b0r = T::add(x0r, x2r), b0i = T::add(x0i, x2i);
            const V b2r = T::sub(x0r, x2r), b2i = T::sub(x0i, x2i);
            V b1r = T::add(x1r, x3r), b1i = T::add(x1i, x3i);
            V b3r = T::sub(x1r, x3r), b3i = T::sub(x1i, x3i);
            cmul(b1r, b1i, tr, ti);
            cmul(b3r, b3i, tr, ti);
            T::st(a0->re + o, T::add(b0r, b1r));
            T::st(a0->im + o, T::add(b0i, b1i));
            T::st(a1->re + o, T::sub(b0r, b1r));
            T::st(a1->im + o, T::sub(b0i, b1i));
            // b2 +- i*t with t = s1*b3
            T::st(a2->re + o, T::sub(b2r, b3i));
            T::st(a2->im + o, T::add(b2i, b3r));
            T::st(a3->re + o, T::add(b2r, b3i));
            T::st(a3->im + o, T::sub(b2i, b3r));
        }
    }
    static inline void dit4(Block* a0, Block* a1, Block* a2, Block* a3, Cplx s, Cplx s1) {
        const V sr = T::bc(s.re), si = T::bc(s.im), tr = T::bc(s1.re), ti = T::bc(s1.im);
        for (int v = 0; v < NV; ++v) {
            const int o = v * T::W;
            const V c0r = T::ld(a0->re + o), c0i = T::ld(a0->im + o);
            const V c1r = T::ld(a1->re + o), c1i = T::ld(a1->im + o);
            const V c2r = T::ld(a2->re + o), c2i = T::ld(a2->im + o);
            const V c3r = T::ld(a3->re + o), c3i = T::ld(a3->im + o);
            const V b0r = T::add(c0r, c1r), b0i = T::add(c0i, c1i);
            V b1r = T::sub(c0r, c1r), b1i = T::sub(c0i, c1i);
            cmul_conj(b1r, b1i, tr, ti);
            const V b2r = T::add(c2r, c3r), b2i = T::add(c2i, c3i);
            // (c2 - c3) * (-i): (im, -re), then * conj(s1)
            V b3r = T::sub(c2i, c3i), b3i = T::sub(c3r, c2r);
            cmul_conj(b3r, b3i, tr, ti);
            T::st(a0->re + o, T::add(b0r, b2r));
            T::st(a0->im + o, T::add(b0i, b2i));
            T::st(a1->re + o, T::add(b1r, b3r));
            T::st(a1->im + o, T::add(b1i, b3i));
            V d0r = T::sub(b0r, b2r), d0i = T::sub(b0i, b2i);
            V d1r = T::sub(b1r, b3r), d1i = T::sub(b1i, b3i);
            cmul_conj(d0r, d0i, sr, si);
            cmul_conj(d1r, d1i, sr, si);
            T::st(a2->re + o, d0r);
            T::st(a2->im + o, d0i);
            T::st(a3->re + o, d1r);
            T::st(a3->im + o, d1i);
        }
    }

    static inline const Cplx& tw_at(const Cplx* tw, int depth0, uint64_t node, int d, uint64_t g) {
        return tw[(uint64_t(1) << (depth0 + d)) + (node << d) + g];
    }

    // Elements are `width` consecutive blocks; element e of the sequence starts at base + e*pitch.
    static void dif_vertical(Block* base, uint64_t pitch, int levels, uint64_t width,
                             const Cplx* tw, int depth0, uint64_t node) {
        const uint64_t n = uint64_t(1) << levels;
        int d = 0;
        if (levels & 1) {
            const uint64_t half = n / 2;
            const Cplx s = tw_at(tw, depth0, node, 0, 0);
            for (uint64_t j = 0; j < half; ++j)
                for (uint64_t e = 0; e < width; ++e)
                    dif2(base + j * pitch + e, base + (j + half) * pitch + e, s);
            d = 1;
        }
        for (; d < levels; d += 2) {
            const uint64_t span = n >> d, q = span / 4;
            for (uint64_t g = 0; g < (uint64_t(1) << d); ++g) {
                const Cplx s = tw_at(tw, depth0, node, d, g);
                const Cplx s1 = tw_at(tw, depth0, node, d + 1, 2 * g);
                Block* p = base + g * span * pitch;
                for (uint64_t j = 0; j < q; ++j, p += pitch)
                    for (uint64_t e = 0; e < width; ++e)
                        dif4(p + e, p + q * pitch + e, p + 2 * q * pitch + e, p + 3 * q * pitch + e, s, s1);
            }
        }
    }

    static void dit_vertical(Block* base, uint64_t pitch, int levels, uint64_t width,
                             const Cplx* tw, int depth0, uint64_t node) {
        const uint64_t n = uint64_t(1) << levels;
        const int first = levels & 1;
        for (int d = levels - 2; d >= first; d -= 2) {
            const uint64_t span = n >> d, q = span / 4;
            for (uint64_t g = 0; g < (uint64_t(1) << d); ++g) {
                const Cplx s = tw_at(tw, depth0, node, d, g);
                const Cplx s1 = tw_at(tw, depth0, node, d + 1, 2 * g);
                Block* p = base + g * span * pitch;
                for (uint64_t j = 0; j < q; ++j, p += pitch)
                    for (uint64_t e = 0; e < width; ++e)
                        dit4(p + e, p + q * pitch + e, p + 2 * q * pitch + e, p + 3 * q * pitch + e, s, s1);
            }
        }
        if (first) {
            const uint64_t half = n / 2;
            const Cplx s = tw_at(tw, depth0, node, 0, 0);
            for (uint64_t j = 0; j < half; ++j)
                for (uint64_t e = 0; e < width; ++e)
                    dit2(base + j * pitch + e, base + (j + half) * pitch + e, s);
        }
    }

    static void dif_inblock(Block* blocks, uint64_t count, const Block* records) {
        for (uint64_t b = 0; b < count; ++b) T::inblock_forward(blocks[b], records[b]);
    }
    static void dit_inblock(Block* blocks, uint64_t count, const Block* records) {
        for (uint64_t b = 0; b < count; ++b) T::inblock_inverse(blocks[b], records[b]);
    }

    static inline void factored_record(Block& out, const Block& sigma, const Block& rho) {
        for (int v = 0; v < NV; ++v) {
            const int o = v * T::W;
            V r = T::ld(sigma.re + o), i = T::ld(sigma.im + o);
            cmul(r, i, T::ld(rho.re + o), T::ld(rho.im + o));
            T::st(out.re + o, r);
            T::st(out.im + o, i);
        }
    }
    // A traits type may fuse the record product into its in-block kernel (keeping the record in
    // registers); otherwise the record goes through a Block on the stack.
    static constexpr bool kFusedFactored = requires(Block& x, const Block& s) {
        T::inblock_forward_factored(x, s, s);
        T::inblock_inverse_factored(x, s, s);
    };
    static void dif_inblock_factored(Block* blocks, uint64_t count, const Block* sigma,
                                     const Block* rho) {
        if constexpr (kFusedFactored) {
            for (uint64_t b = 0; b < count; ++b) T::inblock_forward_factored(blocks[b], sigma[b], *rho);
            return;
        }
        for (uint64_t b = 0; b < count; ++b) {
            Block rec;
            factored_record(rec, sigma[b], *rho);
            T::inblock_forward(blocks[b], rec);
        }
    }
    static void dit_inblock_factored(Block* blocks, uint64_t count, const Block* sigma,
                                     const Block* rho) {
        if constexpr (kFusedFactored) {
            for (uint64_t b = 0; b < count; ++b) T::inblock_inverse_factored(blocks[b], sigma[b], *rho);
            return;
        }
        for (uint64_t b = 0; b < count; ++b) {
            Block rec;
            factored_record(rec, sigma[b], *rho);
            T::inblock_inverse(blocks[b], rec);
        }
    }

    static void multiply(Block* a, const Block* b, uint64_t count) {
        for (uint64_t k = 0; k < count; ++k) {
            for (int v = 0; v < NV; ++v) {
                const int o = v * T::W;
                V xr = T::ld(a[k].re + o), xi = T::ld(a[k].im + o);
                cmul(xr, xi, T::ld(b[k].re + o), T::ld(b[k].im + o));
                T::st(a[k].re + o, xr);
                T::st(a[k].im + o, xi);
            }
        }
    }
    static void square(Block* a, uint64_t count) {
        for (uint64_t k = 0; k < count; ++k) {
            for (int v = 0; v < NV; ++v) {
                const int o = v * T::W;
                const V xr = T::ld(a[k].re + o), xi = T::ld(a[k].im + o);
                T::st(a[k].re + o, T::fmsub(xr, xr, T::mul(xi, xi)));
                const V p = T::mul(xr, xi);
                T::st(a[k].im + o, T::add(p, p));
            }
        }
    }

    // ---- Reduction levels, one W-wide slice of one block index at a time. ----
    static constexpr uint64_t kPrefetchAhead = 8;
    static inline void prefetch_block(const Block* b, int for_write) {
        const char* p = reinterpret_cast<const char*>(b);
        if (for_write) {
            __builtin_prefetch(p, 1);
            __builtin_prefetch(p + 64, 1);
        } else {
            __builtin_prefetch(p, 0);
            __builtin_prefetch(p + 64, 0);
        }
    }
    // The reduction with m and w fixed at compile time, so that the w slices and the DFT stay in
    // registers and the symmetric DFT is inlined (a run-time m kept them in stack arrays behind a
    // call per slice; the unroll pragmas make every slice index a constant). reduce_forward /
    // reduce_inverse pick the instance once per call from the (m, w) pairs of the reduction table.
    template <int M, int WN>
    static void reduce_forward_fixed(const ReductionConstants& rc, const Block* in, Block* work,
                                     uint64_t i0, uint64_t count, uint64_t step) {
        constexpr int w = WN;
        for (uint64_t c = 0; c < count; ++c) {
            const uint64_t i = i0 + c * step;
            const uint64_t pi = padded_block(i);
            if (step > 1 && c + kPrefetchAhead < count) {
                // Strided walks (columns) defeat the hardware prefetchers: fetch ahead by hand.
                const uint64_t ia = i + kPrefetchAhead * step;
                #pragma GCC unroll 8
                for (int j = 0; j < w; ++j) {
                    prefetch_block(in + j * rc.sub_blocks + ia, 0);
                    prefetch_block(work + j * rc.sub_pitch + padded_block(ia), 1);
                }
            }
            for (int v = 0; v < NV; ++v) {
                const int o = v * T::W;
                V xr[7], xi[7];
                #pragma GCC unroll 8
                for (int j = 0; j < w; ++j) {
                    xr[j] = T::ld(in[j * rc.sub_blocks + i].re + o);
                    xi[j] = T::ld(in[j * rc.sub_blocks + i].im + o);
                }
                if constexpr (M == 1) {
                    forward_radix2_levels<WN>(rc, xr, xi);
                } else {
                    #pragma GCC unroll 8
                    for (int r = 1; r < M; ++r)
                        cmul(xr[r], xi[r], T::bc(rc.twist[r].re), T::bc(rc.twist[r].im));
                    dft_symmetric<M>(rc, xr, xi, false);
                }
                #pragma GCC unroll 8
                for (int j = 0; j < w; ++j) {
                    T::st(work[j * rc.sub_pitch + pi].re + o, xr[j]);
                    T::st(work[j * rc.sub_pitch + pi].im + o, xi[j]);
                }
            }
        }
    }

    template <int M, int WN>
    static void reduce_inverse_fixed(const ReductionConstants& rc, const Block* work, Block* out,
                                     uint64_t i0, uint64_t count, uint64_t step) {
        constexpr int w = WN;
        for (uint64_t c = 0; c < count; ++c) {
            const uint64_t i = i0 + c * step;
            const uint64_t pi = padded_block(i);
            // Every lane of the w inputs is loaded before any is stored, so out may be work.
            const uint64_t out_pitch = rc.out_padded ? rc.sub_pitch : rc.sub_blocks;
            const uint64_t oi = rc.out_padded ? pi : i;
            if (step > 1 && c + kPrefetchAhead < count) {
                const uint64_t ia = i + kPrefetchAhead * step;
                const uint64_t oa = rc.out_padded ? padded_block(ia) : ia;
                #pragma GCC unroll 8
                for (int j = 0; j < w; ++j) prefetch_block(out + j * out_pitch + oa, 1);
            }
            for (int v = 0; v < NV; ++v) {
                const int o = v * T::W;
                V xr[7], xi[7];
                #pragma GCC unroll 8
                for (int j = 0; j < w; ++j) {
                    xr[j] = T::ld(work[j * rc.sub_pitch + pi].re + o);
                    xi[j] = T::ld(work[j * rc.sub_pitch + pi].im + o);
                }
                if constexpr (M == 1) {
                    inverse_radix2_levels<WN>(rc, xr, xi);
                    const V sc = T::bc(rc.inv_n);
                    #pragma GCC unroll 8
                    for (int j = 0; j < w; ++j) {
                        xr[j] = T::mul(xr[j], sc);
                        xi[j] = T::mul(xi[j], sc);
                    }
                } else {
                    dft_symmetric<M>(rc, xr, xi, true);
                    const V sc = T::bc(rc.inv_n);
                    xr[0] = T::mul(xr[0], sc);
                    xi[0] = T::mul(xi[0], sc);
                    #pragma GCC unroll 8
                    for (int r = 1; r < M; ++r)
                        cmul(xr[r], xi[r], T::bc(rc.inv_twist[r].re), T::bc(rc.inv_twist[r].im));
                }
                #pragma GCC unroll 8
                for (int j = 0; j < w; ++j) {
                    T::st(out[j * out_pitch + oi].re + o, xr[j]);
                    T::st(out[j * out_pitch + oi].im + o, xi[j]);
                }
            }
        }
    }

    // Calls f.template operator()<m, w>() with the reduction's pair as compile-time constants.
    template <typename F>
    static void with_fixed_reduction(const ReductionConstants& rc, F&& f) {
        switch (rc.m * 8 + rc.w) {
            case 8 + 1: return f.template operator()<1, 1>();
            case 8 + 2: return f.template operator()<1, 2>();
            case 8 + 4: return f.template operator()<1, 4>();
            case 24 + 3: return f.template operator()<3, 3>();
            case 40 + 5: return f.template operator()<5, 5>();
            case 56 + 7: return f.template operator()<7, 7>();
            default: __builtin_trap();  // the reduction table holds no other (m, w) pair
        }
    }
    static void reduce_forward(const ReductionConstants& rc, const Block* in, Block* work, uint64_t i0,
                               uint64_t count, uint64_t step) {
        with_fixed_reduction(rc, [&]<int M, int WN>() { reduce_forward_fixed<M, WN>(rc, in, work, i0, count, step); });
    }
    static void reduce_inverse(const ReductionConstants& rc, const Block* work, Block* out, uint64_t i0,
                               uint64_t count, uint64_t step) {
        with_fixed_reduction(rc, [&]<int M, int WN>() { reduce_inverse_fixed<M, WN>(rc, work, out, i0, count, step); });
    }

    // (x, y) -> (x + s y, x - s y) on one slice.
    static inline void bfly(V& xr, V& xi, V& yr, V& yi, Cplx s) {
        V tr = yr, ti = yi;
        cmul(tr, ti, T::bc(s.re), T::bc(s.im));
        yr = T::sub(xr, tr);
        yi = T::sub(xi, ti);
        xr = T::add(xr, tr);
        xi = T::add(xi, ti);
    }
    static inline void ibfly(V& xr, V& xi, V& yr, V& yi, Cplx s) {
        V dr = T::sub(xr, yr), di = T::sub(xi, yi);
        cmul_conj(dr, di, T::bc(s.re), T::bc(s.im));
        xr = T::add(xr, yr);
        xi = T::add(xi, yi);
        yr = dr;
        yi = di;
    }

    template <int WN>
    __attribute__((always_inline)) static inline void forward_radix2_levels(const ReductionConstants& rc, V* xr,
                                                                            V* xi) {
        constexpr int w = WN;
        for (int d = 0; (1 << d) < w; ++d) {
            const int span = w >> d, half = span / 2;
            for (int g = 0; g < (1 << d); ++g)
                for (int j = 0; j < half; ++j) {
                    const int a = g * span + j;
                    bfly(xr[a], xi[a], xr[a + half], xi[a + half], rc.level_tw[(1 << d) + g]);
                }
        }
    }
    template <int WN>
    __attribute__((always_inline)) static inline void inverse_radix2_levels(const ReductionConstants& rc, V* xr,
                                                                            V* xi) {
        constexpr int w = WN;
        for (int d = (WN == 4 ? 1 : WN == 2 ? 0 : -1); d >= 0; --d) {
            const int span = w >> d, half = span / 2;
            for (int g = 0; g < (1 << d); ++g)
                for (int j = 0; j < half; ++j) {
                    const int a = g * span + j;
                    ibfly(xr[a], xi[a], xr[a + half], xi[a + half], rc.level_tw[(1 << d) + g]);
                }
        }
    }

    // y_q = sum_r x_r exp(+-2 pi i qr/m) in the symmetric form: pair x_r with x_{m-r}, cosines on
    // the sums and sines on the differences (half the multiplies of the direct sum).
    template <int M>
    __attribute__((always_inline)) static inline void dft_symmetric(const ReductionConstants& rc, V* xr, V* xi,
                                                                    bool inverse) {
        constexpr int m = M, h = (m - 1) / 2;
        V sr[3], si[3], dr[3], di[3];
        #pragma GCC unroll 8
        for (int r = 1; r <= h; ++r) {
            sr[r - 1] = T::add(xr[r], xr[m - r]);
            si[r - 1] = T::add(xi[r], xi[m - r]);
            dr[r - 1] = T::sub(xr[r], xr[m - r]);
            di[r - 1] = T::sub(xi[r], xi[m - r]);
        }
        const V x0r = xr[0], x0i = xi[0];
        V y0r = x0r, y0i = x0i;
        #pragma GCC unroll 8
        for (int r = 0; r < h; ++r) {
            y0r = T::add(y0r, sr[r]);
            y0i = T::add(y0i, si[r]);
        }
        xr[0] = y0r;
        xi[0] = y0i;
        #pragma GCC unroll 8
        for (int q = 1; q <= h; ++q) {
            V ar = x0r, ai = x0i, br = T::bc(0.0), bi = T::bc(0.0);
            #pragma GCC unroll 8
            for (int r = 1; r <= h; ++r) {
                const V c = T::bc(rc.cos_qr[q][r]), s = T::bc(rc.sin_qr[q][r]);
                ar = T::fmadd(c, sr[r - 1], ar);
                ai = T::fmadd(c, si[r - 1], ai);
                br = T::fmadd(s, dr[r - 1], br);
                bi = T::fmadd(s, di[r - 1], bi);
            }
            // forward: y_q = A + i B, y_{m-q} = A - i B; inverse: the conjugate roles.
            if (!inverse) {
                xr[q] = T::sub(ar, bi);
                xi[q] = T::add(ai, br);
                xr[m - q] = T::add(ar, bi);
                xi[m - q] = T::sub(ai, br);
            } else {
                xr[q] = T::add(ar, bi);
                xi[q] = T::sub(ai, br);
                xr[m - q] = T::sub(ar, bi);
                xi[m - q] = T::add(ai, br);
            }
        }
    }

    static KernelSet make(const char* name) {
        return KernelSet{name,        &reduce_forward,       &reduce_inverse,
                         &dif_vertical, &dit_vertical,        &dif_inblock,
                         &dit_inblock, &dif_inblock_factored, &dit_inblock_factored,
                         &multiply,    &square};
    }
};
