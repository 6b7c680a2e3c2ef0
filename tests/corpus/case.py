"""How a file of cases collects them."""


def into(cases):
    """Makes the decorator that puts a case on the list. A case changes a Container, made from the sound container that
    is named; its docstring says in one sentence what it breaks."""
    def case(base):
        def add(function):
            function.base = base
            cases.append(function)
            return function
        return add
    return case
