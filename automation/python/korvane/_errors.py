"""The exception that stands for an automation error."""


class AutomationError(Exception):
    """A member raised: `number`, `source` (the class) and `description` say why."""

    def __init__(self, number, source, description):
        super().__init__(f"{source}: {description} ({number})" if source else description)
        self.number = number
        self.source = source
        self.description = description
