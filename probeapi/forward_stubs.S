// SPDX-License-Identifier: MIT

// The exported entries of the probe API, one per line of names.inc. See forward.h.
//
// For x86-64 and arm64, ELF and Mach-O. The object formats differ in the leading underscore of a C
// name, in the directives for sections and symbols, and (arm64) in how an address is written; the
// conditionals below cover these differences only. One statement per line: in Mach-O arm64 assembly
// ';' starts a comment.

#if defined(__APPLE__)
#define C_NAME(Name) _##Name
#define SECTION_NAMES .cstring
#define LOCAL(Name) L##Name
#else
#define C_NAME(Name) Name
#define SECTION_NAMES .section .rodata.str1.1, "aMS", @progbits, 1
#define LOCAL(Name) .L##Name
#endif

// Begins an exported function. Its callers are outside this executable, so a Mach-O linker that
// strips dead code must keep it.
.macro EXPORTED_FUNCTION symbol
  .globl \symbol
#if defined(__APPLE__)
  .no_dead_strip \symbol
#else
  .type \symbol, %function
#endif
  .p2align 4
\symbol:
.endm

// Begins a function that only this executable can call.
.macro PRIVATE_FUNCTION symbol
  .globl \symbol
#if defined(__APPLE__)
  .private_extern \symbol
#else
  .hidden \symbol
  .type \symbol, %function
#endif
  .p2align 4
\symbol:
.endm

.macro END_FUNCTION symbol
#if !defined(__APPLE__)
  .size \symbol, . - \symbol
#endif
.endm

#if defined(__x86_64__)

// Fast path: load, test, jump. %r11 is free in any call.
// Slow path: %r10 = slot, %r11 = name; neither carries an argument of a C function.
.macro STUB symbol, slot, name, text
  SECTION_NAMES
\name:
  .asciz "\text"
  .text
  EXPORTED_FUNCTION \symbol
  .cfi_startproc
  movq  \slot(%rip), %r11
  testq %r11, %r11
  je    1f
  jmpq  *%r11
1:
  leaq  \slot(%rip), %r10
  leaq  \name(%rip), %r11
  jmp   C_NAME(FORWARD_ResolveAndJump)
  .cfi_endproc
  END_FUNCTION \symbol
.endm

// The XSAVE components that can hold arguments: SSE (1), AVX (2), AVX-512 (5, 6, 7).
#define XSAVE_VECTORS 0xE6
#ifndef CPUID1_ECX_OSXSAVE      // a test sets it to 0, as on a processor without XSAVE
#define CPUID1_ECX_OSXSAVE (1 << 27)
#endif
#define FXSAVE_SIZE 512

  .text
  PRIVATE_FUNCTION C_NAME(FORWARD_ResolveAndJump)
  .cfi_startproc
  pushq %rbp
  .cfi_def_cfa_offset 16
  .cfi_offset %rbp, -16
  movq  %rsp, %rbp
  .cfi_def_cfa_register %rbp
  pushq %rax                    // -8   %al: number of vector registers of a variadic call
  pushq %rdi                    // -16
  pushq %rsi                    // -24
  pushq %rdx                    // -32
  pushq %rcx                    // -40
  pushq %r8                     // -48
  pushq %r9                     // -56
  pushq %rbx                    // -64
  .cfi_offset %rbx, -80
  pushq %r10                    // -72  slot
  pushq %r11                    // -80  name

  // Save the vector registers at the full width of this processor and system: the resolver calls
  // the dynamic loader, which may use any of them. %ebx = the components saved; 0 = by FXSAVE.
  movl  $1, %eax
  xorl  %ecx, %ecx
  cpuid
  testl $CPUID1_ECX_OSXSAVE, %ecx
  je    2f
  // First which components, then the size: Darwin enables more for a thread that begins to use them,
  // which a signal handler may do in between. The size is then larger than needed, never smaller.
  xorl  %ecx, %ecx
  xgetbv
  andl  $XSAVE_VECTORS, %eax
  movl  %eax, %r8d
  movl  $0xD, %eax
  xorl  %ecx, %ecx
  cpuid                         // %ebx = bytes for all components that the system has enabled
  subq  %rbx, %rsp
  andq  $-64, %rsp
  movl  %r8d, %ebx
  movl  %r8d, %eax
  xorl  %edx, %edx
  movq  %rdx, 512(%rsp)         // the header must be zero before XSAVE
  movq  %rdx, 520(%rsp)
  movq  %rdx, 528(%rsp)
  movq  %rdx, 536(%rsp)
  movq  %rdx, 544(%rsp)
  movq  %rdx, 552(%rsp)
  movq  %rdx, 560(%rsp)
  movq  %rdx, 568(%rsp)
  xsave (%rsp)
  jmp   3f
2:
  subq  $FXSAVE_SIZE, %rsp
  andq  $-64, %rsp
  fxsave (%rsp)
  xorl  %ebx, %ebx
3:
  movq  -72(%rbp), %rdi
  movq  -80(%rbp), %rsi
  callq C_NAME(FORWARD_Resolve)
  movq  %rax, %r11

  testl %ebx, %ebx
  je    4f
  movl  %ebx, %eax
  xorl  %edx, %edx
  xrstor (%rsp)
  jmp   5f
4:
  fxrstor (%rsp)
5:
  movq  -8(%rbp), %rax
  movq  -16(%rbp), %rdi
  movq  -24(%rbp), %rsi
  movq  -32(%rbp), %rdx
  movq  -40(%rbp), %rcx
  movq  -48(%rbp), %r8
  movq  -56(%rbp), %r9
  movq  -64(%rbp), %rbx
  leaveq
  .cfi_def_cfa %rsp, 8
  .cfi_restore %rbp
  .cfi_restore %rbx
  testq %r11, %r11
  je    6f
  jmpq  *%r11
6:
  xorl  %eax, %eax              // a symbol whose value is null: 0, as an integer or a double
  xorl  %edx, %edx
  xorps %xmm0, %xmm0
  xorps %xmm1, %xmm1
  retq
  .cfi_endproc
  END_FUNCTION C_NAME(FORWARD_ResolveAndJump)

#elif defined(__aarch64__)

// Fast path: address, load, test, jump. x16 and x17 are free between a call and its callee.
// Slow path: x16 = slot, x17 = name.
.macro ADDRESS_OF register, symbol
#if defined(__APPLE__)
  adrp  \register, \symbol@PAGE
  add   \register, \register, \symbol@PAGEOFF
#else
  adrp  \register, \symbol
  add   \register, \register, :lo12:\symbol
#endif
.endm

.macro STUB symbol, slot, name, text
  SECTION_NAMES
\name:
  .asciz "\text"
  .text
  EXPORTED_FUNCTION \symbol
  .cfi_startproc
#if defined(__APPLE__)
  adrp  x16, \slot@PAGE
  ldr   x16, [x16, \slot@PAGEOFF]
#else
  adrp  x16, \slot
  ldr   x16, [x16, :lo12:\slot]
#endif
  cbz   x16, 1f
  br    x16
1:
  ADDRESS_OF x16, \slot
  ADDRESS_OF x17, \name
  b     C_NAME(FORWARD_ResolveAndJump)
  .cfi_endproc
  END_FUNCTION \symbol
.endm

// Frame: x29 x30, x0-x7, x8 (address of a result in memory), q0-q7.
#define FRAME_SIZE 224
#define FRAME_X0 16
#define FRAME_X8 80
#define FRAME_Q0 96

  .text
  PRIVATE_FUNCTION C_NAME(FORWARD_ResolveAndJump)
  .cfi_startproc
  stp   x29, x30, [sp, #-FRAME_SIZE]!
  .cfi_def_cfa_offset FRAME_SIZE
  .cfi_offset x29, -FRAME_SIZE
  .cfi_offset x30, -FRAME_SIZE + 8
  mov   x29, sp
  stp   x0, x1, [sp, #FRAME_X0]
  stp   x2, x3, [sp, #FRAME_X0 + 16]
  stp   x4, x5, [sp, #FRAME_X0 + 32]
  stp   x6, x7, [sp, #FRAME_X0 + 48]
  str   x8, [sp, #FRAME_X8]
  stp   q0, q1, [sp, #FRAME_Q0]
  stp   q2, q3, [sp, #FRAME_Q0 + 32]
  stp   q4, q5, [sp, #FRAME_Q0 + 64]
  stp   q6, q7, [sp, #FRAME_Q0 + 96]
  mov   x0, x16
  mov   x1, x17
  bl    C_NAME(FORWARD_Resolve)
  mov   x16, x0
  ldp   q6, q7, [sp, #FRAME_Q0 + 96]
  ldp   q4, q5, [sp, #FRAME_Q0 + 64]
  ldp   q2, q3, [sp, #FRAME_Q0 + 32]
  ldp   q0, q1, [sp, #FRAME_Q0]
  ldr   x8, [sp, #FRAME_X8]
  ldp   x6, x7, [sp, #FRAME_X0 + 48]
  ldp   x4, x5, [sp, #FRAME_X0 + 32]
  ldp   x2, x3, [sp, #FRAME_X0 + 16]
  ldp   x0, x1, [sp, #FRAME_X0]
  ldp   x29, x30, [sp], #FRAME_SIZE
  .cfi_def_cfa_offset 0
  .cfi_restore x29
  .cfi_restore x30
  cbz   x16, 2f
  br    x16
2:
  mov   x0, #0                  // a symbol whose value is null: 0, as an integer or a double
  mov   x1, #0
  movi  v0.2d, #0
  movi  v1.2d, #0
  movi  v2.2d, #0
  movi  v3.2d, #0
  ret
  .cfi_endproc
  END_FUNCTION C_NAME(FORWARD_ResolveAndJump)

#else
#error "no forwarding stub for this processor"
#endif

#define FORWARD(Name) STUB C_NAME(Name), C_NAME(FORWARD_Slot_##Name), LOCAL(Name_##Name), Name
#include "names.inc"

#if defined(__APPLE__)
.subsections_via_symbols
#else
.section .note.GNU-stack, "", %progbits
#endif
