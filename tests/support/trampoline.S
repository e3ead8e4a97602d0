// void trampoline(Trampoline *)  -- the record is declared in host.h
//
// Calls a function with the arguments, the stack alignment and the floating-point modes of the record, with known values
// in the callee-saved registers, and notes what it finds afterwards.  The argument area is followed by a pattern:
//   esp + 0    32 words: the arguments, then the pattern
//   esp + 128  the record; esp + 132: ebp; esp + 136: esp; esp + 140: 16 words of pattern
#define PATTERN 0x5afe5afe

    .text
    .globl trampoline
    .hidden trampoline
    .type trampoline, @function
trampoline:
    .cfi_startproc
    endbr32
    pushl %ebp
    .cfi_def_cfa_offset 8
    .cfi_offset %ebp, -8
    movl %esp, %ebp
    .cfi_def_cfa_register %ebp
    pushl %ebx
    .cfi_offset %ebx, -12
    pushl %esi
    .cfi_offset %esi, -16
    pushl %edi
    .cfi_offset %edi, -20
    movl 8(%ebp), %edx
    subl $256, %esp
    andl $-16, %esp
    addl 12(%edx), %esp

    movl %esp, %edi                 // pattern everywhere, then the arguments
    movl $51, %ecx
    movl $PATTERN, %eax
    cld
    rep stosl
    movl %esp, %edi
    movl 4(%edx), %esi
    movl 8(%edx), %ecx
    rep movsl
    movl %edx, 128(%esp)
    movl %ebp, 132(%esp)
    movl %esp, 136(%esp)

    movl 0(%edx), %eax
    fnclex
    fldcw 20(%edx)
    ldmxcsr 16(%edx)
    movl $0x0b0b0b0b, %ebx
    movl $0x51515151, %esi
    movl $0xd1d1d1d1, %edi
    movl $0xcdcdcdcd, %ecx
    movl $0xdcdcdcdc, %edx
    call *%eax

    movl 128(%esp), %ecx
    movl %eax, 28(%ecx)
    movl %edx, 32(%ecx)
    movl %ebx, 44(%ecx)
    movl %esi, 48(%ecx)
    movl %edi, 52(%ecx)
    pushfl
    popl 60(%ecx)
    cld
    stmxcsr 64(%ecx)
    fnstcw 68(%ecx)
    cmpl $0, 24(%ecx)
    je 1f
    fstpl 36(%ecx)
1:  fnstenv 72(%ecx)
    xorl %eax, %eax                 // 1: ebp and esp are as they were
    cmpl %ebp, 132(%esp)
    jne 2f
    cmpl %esp, 136(%esp)
    jne 2f
    incl %eax
2:  movl %eax, 56(%ecx)
    movl 132(%esp), %ebp

    leal (%esp), %edi               // how many words of pattern are left
    movl 8(%ecx), %edx
    xorl %eax, %eax
3:  cmpl $32, %edx
    jae 4f
    cmpl $PATTERN, (%edi,%edx,4)
    jne 5f
    incl %edx
    jmp 3b
4:  movl $35, %edx
6:  cmpl $51, %edx
    jae 7f
    cmpl $PATTERN, (%edi,%edx,4)
    jne 5f
    incl %edx
    jmp 6b
7:  incl %eax
5:  movl %eax, 100(%ecx)

    leal -12(%ebp), %esp
    popl %edi
    popl %esi
    popl %ebx
    popl %ebp
    .cfi_def_cfa %esp, 4
    ret
    .cfi_endproc
    .size trampoline, .-trampoline
    .section .note.GNU-stack, "", @progbits
