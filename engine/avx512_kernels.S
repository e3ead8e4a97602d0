# Inner loops of packed products with 512-bit vectors and eight registers.
#
# void NAME(const void *a, const void *b, void *tile, int segments, int quads, int accumulate)
#
# A tile of 7 (4) vectors is the sum over steps of as many broadcast entries of A, `stride` bytes apart, times a vector of
# B: segments of 16 steps, then quads of 4.  The tile is stored by the first segment unless it is to be accumulated.
# One long chain in seven registers would be bound by latency.  A segment starts from zero and is added to the tile in
# memory, so that the processor runs the end of one segment beside the start of the next.

# count steps of 7 rows: a vector of B in zmm7.
.macro multiply_7 count, multiply, size, broadcast, stride
    .Lstep = 0
    .rept \count
    vmovdqa64 .Lstep*64(%edx), %zmm7
    .irp row, 0, 1, 2, 3, 4, 5, 6
    \multiply \row*\stride+.Lstep*\size(%ecx){\broadcast}, %zmm7, %zmm\row
    .endr
    .Lstep = .Lstep + 1
    .endr
    add $\count*\size, %ecx
    add $\count*64, %edx
.endm

# The same of bits: an entry of A is a block of 8 x 8, a byte of B a column of 8.  4 rows of blocks, two steps at a time.
.macro multiply_4 count, multiply, size, broadcast, stride
    .Lstep = 0
    .rept \count/2
    vmovdqa64 .Lstep*64(%edx), %zmm4
    vmovdqa64 .Lstep*64+64(%edx), %zmm5
    .irp row, 0, 1, 2, 3
    \multiply $0, \row*\stride+.Lstep*\size(%ecx){\broadcast}, %zmm4, %zmm6
    \multiply $0, \row*\stride+.Lstep*\size+\size(%ecx){\broadcast}, %zmm5, %zmm7
    vpternlogq $0x96, %zmm6, %zmm7, %zmm\row
    .endr
    .Lstep = .Lstep + 2
    .endr
    add $\count*\size, %ecx
    add $\count*64, %edx
.endm

.macro clear rows
    .irp row, 0, 1, 2, 3, 4, 5, 6
    .if \row < \rows
    vpxor %xmm\row, %xmm\row, %xmm\row
    .endif
    .endr
.endm

# Adds the tile in memory unless %esi is 0, and stores the sum.
.macro deposit rows, add
    test %esi, %esi
    jz 8f
    .irp row, 0, 1, 2, 3, 4, 5, 6
    .if \row < \rows
    \add \row*64(%eax), %zmm\row, %zmm\row
    .endif
    .endr
8:
    .irp row, 0, 1, 2, 3, 4, 5, 6
    .if \row < \rows
    vmovdqa64 %zmm\row, \row*64(%eax)
    .endif
    .endr
.endm

.macro product name, rows, multiply, size, broadcast, stride, add
    .globl \name
    .hidden \name
    .type \name, @function
    .p2align 5
\name:
    .cfi_startproc
    push %ebx
    .cfi_adjust_cfa_offset 4
    .cfi_rel_offset %ebx, 0
    push %esi
    .cfi_adjust_cfa_offset 4
    .cfi_rel_offset %esi, 0
    mov 12(%esp), %ecx
    mov 16(%esp), %edx
    mov 20(%esp), %eax
    mov 24(%esp), %ebx
    mov 32(%esp), %esi
    test %ebx, %ebx
    jz 3f
    .p2align 5
1:
    clear \rows
    multiply_\rows 16, \multiply, \size, \broadcast, \stride
    deposit \rows, \add
    mov $1, %esi
    dec %ebx
    jnz 1b
3:
    mov 28(%esp), %ebx
    test %ebx, %ebx
    jz 5f
    clear \rows
4:
    multiply_\rows 4, \multiply, \size, \broadcast, \stride
    dec %ebx
    jnz 4b
    deposit \rows, \add
5:
    pop %esi
    .cfi_adjust_cfa_offset -4
    .cfi_restore %esi
    pop %ebx
    .cfi_adjust_cfa_offset -4
    .cfi_restore %ebx
    ret
    .cfi_endproc
    .size \name, . - \name
.endm

    .text
    product modla_avx512_bytes, 7, vpdpbusd, 4, 1to16, 1088, vpaddd
    product modla_avx512_pairs, 7, vpdpwssd, 4, 1to16, 1088, vpaddd
    product modla_avx512_wide, 7, vpmadd52luq, 8, 1to8, 2112, vpaddq
    product modla_avx512_bits, 4, vgf2p8affineqb, 8, 1to8, 1088, vpxorq
    .section .note.GNU-stack, "", @progbits
