#!/usr/bin/env python3
"""modLA from a program of any kind, 64-bit ones too: `modla` runs beside it and talks over pipes.

Lists are written as JSON writes them, both ways, so that every answer is one line of JSON.

coprocess.py [MODLA]
"""
import json
import subprocess
import sys
import tempfile

# Rows of a Matrix as lists, for answers; the other way is matrix(lists).
LISTS = """
lists := proc(A)
    L := []
    for i to rows(A) do
        row := []
        for j to columns(A) do row := concat(row, [A[i, j]]) end
        L := concat(L, [row])
    end
    L
end
"""


def start(program="modla"):
    """A console that waits for statements."""
    errors = tempfile.TemporaryFile("w+")
    console = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=errors, text=True)
    console.errors = errors
    tell(console, LISTS)
    return console


def tell(console, statements):
    """Runs statements that print nothing, such as assignments."""
    console.stdin.write(statements + "\n")
    console.stdin.flush()


def ask(console, expression):
    """The value of an expression: an integer, a text, or lists of these.  An error ends the console."""
    try:
        tell(console, expression)
    except BrokenPipeError:
        pass  # it ended before; why, is told below
    answer = console.stdout.readline()
    if not answer:
        console.wait()
        console.errors.seek(0)
        raise RuntimeError(console.errors.read().strip())
    return json.loads(answer)


def stop(console):
    """Ends the console; waits until it has."""
    console.communicate()
    console.errors.close()


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else "modla"
    console = start(program)
    square = [[16, 2, 3, 13], [5, 11, 10, 8], [9, 7, 6, 12], [4, 14, 15, 1]]
    tell(console, f"A := matrix({json.dumps(square)})")
    print("rank", ask(console, "Rank(101, A)"))
    print("echelon form", ask(console, "lists(Mod(101, Rref(101, A), integer))"))

    # Numbers of any size; fractions as texts.
    hilbert = [[360360 // (i + j + 1) for j in range(7)] for i in range(7)]
    tell(console, f"H := matrix({json.dumps(hilbert)})")
    print("determinant", ask(console, "DetZ(H)"))
    print("solution", ask(console, 'x := SolveZ(H, column_vector([1, 0, 0, 0, 0, 0, 0])); join(x[1])'))

    try:
        ask(console, "Inverse(101, A)")
    except RuntimeError as error:
        print(str(error).splitlines()[0])
    stop(console)
    console = start(program)  # it goes on with a new one
    print(ask(console, "[1, [2, 3]]"))
    stop(console)


if __name__ == "__main__":
    main()
