<?php
// Korvane's objects in PHP: members are read, written and called by their published names.
// Needs the FFI extension (Debian: php-cli) and libkorvane.so, found at $KORVANE_LIBRARY or by the
// system's loader.
final class Korvane
{
    private static ?FFI $c = null;

    private function __construct(private int $handle) {}
    public function __destruct() { self::c()->korvane_release($this->handle); }

    public static function create(string $class): self { return self::make('korvane_create', $class); }
    public static function connect(string $url): self { return self::make('korvane_connect', $url); }

    public function __get(string $name): mixed { return $this->run('korvane_get', $name, []); }
    public function __call(string $name, array $arguments): mixed
    {
        // Item, ItemIndex, Subject and Fields are properties with parameters; the rest are calls.
        $property = in_array($name, ['Item', 'ItemIndex', 'Subject', 'Fields'], true);
        return $this->run($property ? 'korvane_get' : 'korvane_call', $name, $arguments);
    }
    public function __set(string $name, mixed $value): void
    {
        $kept = [];
        $one = self::c()->new('korvane_value');
        self::fill($one, $value, $kept);
        $error = self::c()->new('korvane_error');
        $status = self::c()->korvane_let($this->handle, $name, FFI::addr($one), FFI::addr($error));
        array_map(FFI::free(...), $kept);
        self::check($status, $error);
    }

    private static function make(string $function, string $argument): self
    {
        $handle = self::c()->new('uint64_t');
        $error = self::c()->new('korvane_error');
        self::check(self::c()->$function($argument, FFI::addr($handle), FFI::addr($error)), $error);
        return new self($handle->cdata);
    }

    private function run(string $function, string $name, array $arguments): mixed
    {
        $count = count($arguments);
        $values = self::c()->new('korvane_value[' . max($count, 1) . ']');
        [$kept, $i] = [[], 0];
        foreach ($arguments as $key => $argument) {
            if (is_string($key)) {
                $values[$i]->name = self::text($key, $kept);
            }
            self::fill($values[$i++], $argument instanceof KorvaneRef ? $argument->value : $argument, $kept);
            $values[$i - 1]->by_reference = (int) ($argument instanceof KorvaneRef);
        }
        $result = self::c()->new('korvane_value');
        $error = self::c()->new('korvane_error');
        $status = self::c()->$function($this->handle, $name, FFI::addr($values[0]), $count, FFI::addr($result), FFI::addr($error));
        array_map(FFI::free(...), $kept);
        self::check($status, $error);
        foreach (array_values($arguments) as $i => $argument) {
            if ($argument instanceof KorvaneRef) {
                $argument->value = self::take($values[$i]);
            }
        }
        return self::take($result);
    }

    private static function fill(FFI\CData $value, mixed $given, array &$kept): void
    {
        if ($given === null) { $value->type = 6; }
        elseif (is_bool($given)) { $value->type = 2; $value->integer = (int) $given; }
        elseif (is_int($given)) { $value->type = 3; $value->integer = $given; }
        elseif (is_float($given)) { $value->type = 4; $value->number = $given; }
        elseif (is_string($given)) {
            $value->type = 5;
            $value->text = self::text($given, $kept);
            $value->text_length = strlen($given);
        } elseif ($given instanceof self) { $value->type = 6; $value->object = $given->handle; }
        else { throw new TypeError('a ' . get_debug_type($given) . ' is no value that can be passed'); }
    }

    private static function take(FFI\CData $value): mixed
    {
        $taken = match ($value->type) {
            2 => (bool) $value->integer,
            3 => $value->integer,
            4 => $value->number,
            5 => FFI::string($value->text, $value->text_length),
            6 => $value->object ? new self($value->object) : null,
            default => null,
        };
        self::c()->korvane_clear(FFI::addr($value));
        return $taken;
    }

    /** A copy of the text that C can point to, until it is freed. */
    private static function text(string $text, array &$kept): FFI\CData
    {
        $kept[] = $bytes = self::c()->new('char[' . (strlen($text) + 1) . ']', false);
        FFI::memcpy($bytes, $text . "\0", strlen($text) + 1);
        return FFI::addr($bytes[0]);
    }

    private static function check(int $status, FFI\CData $error): void
    {
        if ($status !== 0) {
            throw new RuntimeException(FFI::string($error->source) . ': ' . FFI::string($error->description), $error->number);
        }
    }

    private static function c(): FFI
    {
        return self::$c ??= FFI::cdef(<<<'C'
            typedef struct { const char *name; int32_t type; int32_t by_reference; int64_t integer;
                double number; const char *text; int64_t text_length; uint64_t object; } korvane_value;
            typedef struct { int32_t number; char source[64]; char description[448]; } korvane_error;
            int32_t korvane_create(const char *, uint64_t *, korvane_error *);
            int32_t korvane_connect(const char *, uint64_t *, korvane_error *);
            int32_t korvane_get(uint64_t, const char *, korvane_value *, int32_t, korvane_value *, korvane_error *);
            int32_t korvane_let(uint64_t, const char *, const korvane_value *, korvane_error *);
            int32_t korvane_call(uint64_t, const char *, korvane_value *, int32_t, korvane_value *, korvane_error *);
            int32_t korvane_release(uint64_t);
            void korvane_clear(korvane_value *);
            C, getenv('KORVANE_LIBRARY') ?: 'libkorvane.so.0');
    }
}

/** A variable that an operation writes a result to. */
final class KorvaneRef
{
    public function __construct(public mixed $value = null) {}
}
