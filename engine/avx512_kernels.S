# Inner loops of packed products with 512-bit vectors and eight registers.
#
# void NAME(const void *a, const void *b, void *tile, int segments, int quads, int accumulate)
#
# A tile of 7 vectors is the sum (over steps) of 7 broadcast entries of A, `stride` bytes from row to row, times a vector
# of B: segments of 16 steps, then quads of 4.  The tile is stored by the first segment unless it is to be accumulated.
# One long chain in seven registers would be bound by latency.  A segment starts from zero and is added to the tile in
# memory, so that the processor runs the end of one segment beside the start of the next.

.macro steps count, multiply, size, broadcast, stride
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

.macro clear
    .irp row, 0, 1, 2, 3, 4, 5, 6
    vpxor %xmm\row, %xmm\row, %xmm\row
    .endr
.endm

# Adds the tile in memory unless %esi is 0, and stores the sum.
.macro deposit add
    test %esi, %esi
    jz 8f
    .irp row, 0, 1, 2, 3, 4, 5, 6
    \add \row*64(%eax), %zmm\row, %zmm\row
    .endr
8:
    .irp row, 0, 1, 2, 3, 4, 5, 6
    vmovdqa64 %zmm\row, \row*64(%eax)
    .endr
.endm

.macro product name, multiply, size, broadcast, stride, add
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
    clear
    steps 16, \multiply, \size, \broadcast, \stride
    deposit \add
    mov $1, %esi
    dec %ebx
    jnz 1b
3:
    mov 28(%esp), %ebx
    test %ebx, %ebx
    jz 5f
    clear
4:
    steps 4, \multiply, \size, \broadcast, \stride
    dec %ebx
    jnz 4b
    deposit \add
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
    product modla_avx512_bytes, vpdpbusd, 4, 1to16, 1088, vpaddd
    product modla_avx512_pairs, vpdpwssd, 4, 1to16, 1088, vpaddd
    product modla_avx512_wide, vpmadd52luq, 8, 1to8, 2112, vpaddq
    .section .note.GNU-stack, "", @progbits
