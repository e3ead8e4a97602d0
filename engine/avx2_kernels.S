# Inner loops of packed products with AVX2 and FMA; as in avx512_kernels.S, with tiles of 6 vectors and explicit broadcasts.
#
# void NAME(const void *a, const void *b, void *tile, int segments, int quads, int accumulate)

# 16-bit pairs: the sums of products are added by an instruction of their own.
.macro steps_pairs count, stride
    .Lstep = 0
    .rept \count
    vmovdqa .Lstep*32(%edx), %ymm7
    .irp row, 0, 1, 2, 3, 4, 5
    vpbroadcastd \row*\stride+.Lstep*4(%ecx), %ymm6
    vpmaddwd %ymm6, %ymm7, %ymm6
    vpaddd %ymm6, %ymm\row, %ymm\row
    .endr
    .Lstep = .Lstep + 1
    .endr
    add $\count*4, %ecx
    add $\count*32, %edx
.endm

.macro steps_doubles count, stride
    .Lstep = 0
    .rept \count
    vmovapd .Lstep*32(%edx), %ymm7
    .irp row, 0, 1, 2, 3, 4, 5
    vbroadcastsd \row*\stride+.Lstep*8(%ecx), %ymm6
    vfmadd231pd %ymm6, %ymm7, %ymm\row
    .endr
    .Lstep = .Lstep + 1
    .endr
    add $\count*8, %ecx
    add $\count*32, %edx
.endm

.macro clear
    .irp row, 0, 1, 2, 3, 4, 5
    vpxor %xmm\row, %xmm\row, %xmm\row
    .endr
.endm

# Adds the tile in memory unless %esi is 0, and stores the sum.
.macro deposit add
    test %esi, %esi
    jz 8f
    .irp row, 0, 1, 2, 3, 4, 5
    \add \row*32(%eax), %ymm\row, %ymm\row
    .endr
8:
    .irp row, 0, 1, 2, 3, 4, 5
    vmovdqa %ymm\row, \row*32(%eax)
    .endr
.endm

.macro product name, kind, stride, add
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
    steps_\kind 16, \stride
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
    steps_\kind 4, \stride
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
    product modla_avx2_pairs, pairs, 1088, vpaddd
    product modla_avx2_doubles, doubles, 2112, vaddpd
    .section .note.GNU-stack, "", @progbits
