"""What the tests of the published schemas have in common."""


def closed(schema):
    """The schema, refusing members that it does not name."""
    if isinstance(schema, list):
        return [closed(one) for one in schema]
    if not isinstance(schema, dict):
        return schema
    made = {name: closed(one) for name, one in schema.items()}
    if made.get("type") == "object" and isinstance(made.get("properties"), dict):
        made["additionalProperties"] = False
    return made


def named(schema):
    """Every member that the schema names."""
    if isinstance(schema, list):
        return set().union(*map(named, schema))
    if not isinstance(schema, dict):
        return set()
    names = set(schema["properties"]) if isinstance(schema.get("properties"), dict) else set()
    return names.union(*map(named, schema.values()))


def words(schema):
    """Every word of its enumerations."""
    if isinstance(schema, list):
        return set().union(*map(words, schema))
    if not isinstance(schema, dict):
        return set()
    return set(schema.get("enum", [])).union(*map(words, schema.values()))


def met(value):
    """Every member that occurs in a document."""
    if isinstance(value, list):
        return set().union(*map(met, value))
    if not isinstance(value, dict):
        return set()
    return set(value).union(*map(met, value.values()))
