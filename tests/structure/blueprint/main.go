// Reads the device's build file with the parser of the device's build system and prints its modules
// as JSON, their properties by dotted names. Fails with the parser's words where it cannot be read,
// and with the first line that differs where it is not formatted as that system formats it.
package main

import (
	"bytes"
	"encoding/json"
	"fmt"
	"os"

	"github.com/google/blueprint/parser"
)

type module struct {
	Type       string                 `json:"type"`
	Line       int                    `json:"line"`
	Properties map[string]interface{} `json:"properties"`
}

func valueOf(expression parser.Expression) interface{} {
	switch value := expression.Eval().(type) {
	case *parser.String:
		return value.Value
	case *parser.Bool:
		return value.Value
	case *parser.Int64:
		return value.Value
	case *parser.List:
		items := []interface{}{}
		for _, item := range value.Values {
			items = append(items, valueOf(item))
		}
		return items
	}
	fail("%s: a value of a kind that is not expected here", expression.Pos())
	return nil
}

func addProperties(into map[string]interface{}, prefix string, properties []*parser.Property) {
	for _, property := range properties {
		if nested, isMap := property.Value.Eval().(*parser.Map); isMap {
			addProperties(into, prefix+property.Name+".", nested.Properties)
		} else {
			into[prefix+property.Name] = valueOf(property.Value)
		}
	}
}

func fail(format string, args ...interface{}) {
	fmt.Fprintf(os.Stderr, format+"\n", args...)
	os.Exit(1)
}

func requireFormatted(path string, text []byte, file *parser.File) {
	formatted, err := parser.Print(file)
	if err != nil {
		fail("%s: %s", path, err)
	}
	is, wanted := bytes.Split(text, []byte("\n")), bytes.Split(formatted, []byte("\n"))
	for i := range wanted {
		if i >= len(is) || !bytes.Equal(is[i], wanted[i]) {
			fail("%s:%d: not formatted: expected %q", path, i+1, wanted[i])
		}
	}
	if len(is) > len(wanted) {
		fail("%s:%d: not formatted: expected the end", path, len(wanted))
	}
}

func main() {
	path := os.Args[1]
	text, err := os.ReadFile(path)
	if err != nil {
		fail("%s", err)
	}
	scope := parser.NewScope(nil)
	file, errs := parser.ParseAndEval(path, bytes.NewReader(text), scope)
	for _, err := range errs {
		fmt.Fprintln(os.Stderr, err)
	}
	if len(errs) > 0 {
		os.Exit(1)
	}
	requireFormatted(path, text, file)
	modules := []module{}
	for _, definition := range file.Defs {
		if found, isModule := definition.(*parser.Module); isModule {
			properties := map[string]interface{}{}
			addProperties(properties, "", found.Properties)
			modules = append(modules, module{found.Type, found.Pos().Line, properties})
		}
	}
	if err := json.NewEncoder(os.Stdout).Encode(modules); err != nil {
		fail("%s", err)
	}
}
