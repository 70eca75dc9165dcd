"""docs/openapi.json: every URL, method, level, field and document, for programs (OpenAPI 3.1)."""

import json
import re
import sys
import xml.etree.ElementTree as ElementTree

NAMESPACE = "urn:psialliance-org"
MATCHES = {"kPrefix": "begins", "kExact": "exact", "kLonger": "begins", "kNested": "begins", "kFlat": "exact"}


def scalar(kind):
    """The schema of an element's text: "text", "text 31", "number", "time", or words between commas."""
    name, _, length = kind.partition(" ")
    if name == "text":
        return {"type": "string"} | ({"maxLength": int(length)} if length else {})
    if name == "number":
        return {"type": "integer", "format": "int32"}
    if name == "time":
        return {"type": "string", "pattern": r"^ *\d{1,4}-\d\d-\d\dT\d\d:\d\d:\d\d$"}
    words = name.split(",")
    return {"type": "boolean"} if words == ["true", "false"] else {"type": "string", "enum": words}


def reference(name):
    return {"$ref": "#/components/schemas/" + name}


def repeated(schema):
    return {"type": "array", "items": schema}


def document_schema(text):
    """The schema of an answer document; its lines are described in docs/reference.toml."""
    root = {"type": "object", "properties": {}, "required": [], "additionalProperties": False}
    open_elements = [root]
    for line in text.strip("\n").splitlines():
        depth = (len(line) - len(line.lstrip())) // 2
        name, _, kind = line.strip().partition(" ")
        mark = name[len(name.rstrip("?*")) :]
        name = name.rstrip("?*")
        if kind.startswith("@"):
            schema = reference(kind[1:])
        elif kind:
            schema = scalar(kind)
        else:
            schema = {"type": "object", "properties": {}, "required": [], "additionalProperties": False}
        del open_elements[depth + 1 :]
        parent = open_elements[depth]
        parent["properties"][name] = repeated(schema) if mark == "*" else schema
        if not mark:
            parent["required"].append(name)
        open_elements.append(schema)
    return root


def body_schema(root, fields):
    """The schema of a request's document. Nothing is required, and what is not named is ignored."""
    schema = {"type": "object", "properties": {}, "xml": {"name": root, "namespace": NAMESPACE}}
    for path, kind, meaning, without in fields:
        *parents, last = path.split("/")
        place = schema
        for parent in parents:
            name = parent.rstrip("*")
            below = {"type": "object", "properties": {}}
            place = place["properties"].setdefault(name, repeated(below) if parent != name else below)
            place = place.get("items", place)
        words = meaning + ("; " if meaning else "") + "without it: " + without
        place["properties"][last.rstrip("*")] = scalar(kind) | {"description": words}
    return schema


def operation_id(example):
    words = re.findall(r"[A-Za-z0-9]+", example["path"].replace("{id}", "Item").removeprefix("/PSIA/"))
    return example["method"].lower() + "".join(word[0].upper() + word[1:] for word in words)


def root_of(example):
    """The name of the answer's root element, empty where the answer is no document."""
    found = re.search(r"<([A-Za-z]+) version", example["answer"] or example["printed"])
    return found[1] if found and not example.get("binary") else ""


def responses(example):
    status = reference("ResponseStatus")
    ok = {"description": "The answer, or a status document that tells why there is none."}
    root = root_of(example)
    if example["printed"]:
        return {
            "500": {
                "description": "The document goes to the service's standard output. nginx reports 502."
            },
            "200": {
                "description": "Only a refusal is answered.",
                "content": {"application/xml": {"schema": status}},
            },
        }
    if root == "ResponseStatus":
        ok = {"description": "What happened.", "content": {"application/xml": {"schema": status}}}
    elif root:
        ok["content"] = {"application/xml": {"schema": {"oneOf": [reference(root), status]}}}
    elif example.get("binary"):
        ok["content"] = {
            "application/octet-stream": {"schema": {"type": "string", "format": "binary"}},
            "application/xml": {"schema": status},
        }
    else:
        kind = re.search(r"Content-Type: ([\w/]+)", example["answer"])[1]
        ok["content"] = {kind: {"schema": {"type": "string"}}}
    return {"200": ok}


def operation(example, resource):
    result = {
        "operationId": operation_id(example),
        "summary": example.get("title", resource["title"]),
        "tags": [resource["group"]],
        "x-psia-level": example["level"],
        "x-psia-match": MATCHES[resource["match"]],
        "description": f"For accounts of level 0 to {example['level']}."
        if example["level"]
        else "For accounts of level 0.",
    }
    parameters = (
        [{"name": "id", "in": "path", "required": True, "schema": {"type": "string"}}]
        if "{id}" in example["path"]
        else []
    )
    if "?" in example["uri"]:
        parameters.append(
            {
                "name": "MODE",
                "in": "query",
                "required": True,
                "schema": {"type": "string", "enum": ["FULL", "BASIC"]},
            }
        )
    if parameters:
        result["parameters"] = parameters
    if "root" in example:
        schema = body_schema(example["root"], example["takes"])
        result["requestBody"] = {"required": True, "content": {"application/xml": {"schema": schema}}}
    elif "body" in example:
        kind = {"type": "string"} | ({} if example["type"] == "text/plain" else {"format": "binary"})
        result["requestBody"] = {"required": True, "content": {example["type"]: {"schema": kind}}}
    return result | {
        "responses": responses(example) | {"401": {"$ref": "#/components/responses/Unauthorized"}}
    }


def description(words, version):
    paths = {}
    for resource in words["resource"]:
        for example in resource["do"]:
            paths.setdefault(example["path"], {})[example["method"].lower()] = operation(example, resource)
    schemas = {
        name: {"xml": {"name": name, "namespace": NAMESPACE}} | document_schema(text)
        for name, text in words["documents"].items()
    }
    return {
        "openapi": "3.1.0",
        "info": {
            "title": "PSIA management service",
            "version": version,
            "description": "The management interface of a network camera, for people in docs/reference.md. "
            "Element names are case-sensitive here; the service ignores case in what it receives.",
        },
        "servers": [{"url": "http://{camera}", "variables": {"camera": {"default": "192.168.1.10"}}}],
        "security": [{"basic": []}],
        "tags": [
            {"name": name} for name in dict.fromkeys(resource["group"] for resource in words["resource"])
        ],
        "paths": paths,
        "components": {
            "securitySchemes": {"basic": {"type": "http", "scheme": "basic"}},
            "responses": {
                "Unauthorized": {
                    "description": "Credentials are missing or wrong.",
                    "headers": {"WWW-Authenticate": {"schema": {"type": "string"}}},
                    "content": {"text/plain": {"schema": {"type": "string"}}},
                }
            },
            "schemas": schemas,
        },
    }


# The examples against the description.


class Unfit(Exception):
    pass


def instance(element, schema, schemas):
    """What a program reads from an element: an object, a list, a number, a truth value or a text, without
    attributes. Raises Unfit for an element that the schema does not name, even if the service ignores it."""
    while "$ref" in schema:
        schema = schemas[schema["$ref"].rpartition("/")[2]]
    text = element.text or ""
    match schema["type"]:
        case "object":
            result = {}
            for child in element:
                name = child.tag.rpartition("}")[2]
                if name not in schema["properties"]:
                    raise Unfit(f"{element.tag.rpartition('}')[2]} has no element {name}")
                kind = schema["properties"][name]
                if kind.get("type") == "array":
                    result.setdefault(name, []).append(instance(child, kind["items"], schemas))
                else:
                    result[name] = instance(child, kind, schemas)
            return result
        case "integer":
            return int(text) if re.fullmatch(r"-?\d+", text) else text
        case "boolean":
            return {"true": True, "false": False}.get(text, text)
    return text


def check_examples(words, openapi):
    """What does not fit, in words. Each document of an example must be what the description says."""
    try:
        import jsonschema  # needed here only
    except ModuleNotFoundError:
        sys.exit(
            "The examples cannot be checked: apt-get install python3-jsonschema"
        )

    schemas = openapi["components"]["schemas"]
    faults = []

    def check(text, schema, what):
        try:
            value = instance(ElementTree.fromstring(text), schema, schemas)
            whole = {
                "$schema": "https://json-schema.org/draft/2020-12/schema",
                "components": openapi["components"],
                "allOf": [schema],
            }
            faults.extend(
                f"{what}: {error.json_path}: {error.message}"
                for error in jsonschema.Draft202012Validator(whole).iter_errors(value)
            )
        except (ElementTree.ParseError, Unfit) as error:
            faults.append(f"{what}: {error}")

    for resource in words["resource"]:
        for example in resource["do"]:
            what = f"{example['method']} {example['uri']}"
            if "root" in example:
                schema = openapi["paths"][example["path"]][example["method"].lower()]["requestBody"][
                    "content"
                ]["application/xml"]["schema"]
                check(example["body"], schema, what + ", body")
                if ElementTree.fromstring(example["body"]).tag != example["root"]:
                    faults.append(f"{what}: the body's root element is not {example['root']}")
            root = root_of(example)
            if root and not example["printed"]:
                check(
                    example["answer"][example["answer"].index("<?xml") :], reference(root), what + ", answer"
                )
    return faults


def render(openapi):
    return json.dumps(openapi, indent=1, ensure_ascii=False) + "\n"
