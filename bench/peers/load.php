<?php
// The answer of action "load" in plain PHP, to compare the module with.
//
// Usage: load.php ROOT USER PARAMETERS COUNT
//
// Prints the answer, and then the median of COUNT loads in seconds of the processor.

const SQL = 'SELECT message_content FROM nexnotify INNER JOIN message ON nexnotify.message_id = message.message_id ' .
    'WHERE uid = :uid ORDER BY message.timestamp ASC';

/** What a file says, read again only when the file has changed. */
class Kept
{
    private ?array $identity = null;
    private mixed $value;

    public function __construct(private string $path, private Closure $parse)
    {
    }

    public function get(): mixed
    {
        clearstatcache(true, $this->path);
        $status = stat($this->path);
        $identity = [$status['dev'], $status['ino'], $status['size'], $status['mtime']];
        if ($identity !== $this->identity) {
            $this->value = ($this->parse)(file_get_contents($this->path));
            $this->identity = $identity;
        }
        return $this->value;
    }
}

function parseUsers(string $text): array
{
    $users = json_decode($text, true)['users'];
    foreach ($users as &$user) {
        $user['hiddenTags'] = array_flip($user['hiddenTags'] ?? []);
    }
    return $users;
}

function parseTags(string $text): array
{
    preg_match_all('/^\[(.+)\]$/m', $text, $matches);
    return array_flip($matches[1]);
}

function load(SQLite3 $database, Kept $users, Kept $tags, string $name, array $parameters): string
{
    $knownTags = $tags->get();
    $user = $users->get()[$name];
    $hiddenTags = $user['hiddenTags'];
    $everything = $parameters['all'] ?? false;

    $statement = $database->prepare(SQL);
    $statement->bindValue(':uid', $user['uid']);
    $result = $statement->execute();
    $filtered = [];
    $newest = 0.0;
    while ($columns = $result->fetchArray(SQLITE3_NUM)) {
        $row = json_decode($columns[0], true);
        $tag = $row['title'] ?? '';
        if (!str_contains($tag, ':') && !isset($knownTags[$tag])) {
            continue;
        }
        if (!$everything && isset($hiddenTags[$tag])) {
            continue;
        }
        if (isset($row['time'])) {
            $newest = max($newest, (float) $row['time']);
        }
        $filtered[] = $row;
    }
    $result->finalize();

    $limit = $parameters['limit'] ?? 0;
    $pageSize = $limit > 0 ? $limit : 30;
    $offset = max($parameters['offset'] ?? 0, 0);
    $page = [];
    $listed = 0;
    $skipped = 0;
    for ($i = count($filtered) - 1; $i >= 0; --$i) {
        if (!isset($filtered[$i]['time'])) {
            ++$skipped;
            continue;
        }
        if (count($page) >= $pageSize) {
            break;
        }
        if ($listed >= $offset) {
            $page[] = $filtered[$i];
        }
        ++$listed;
    }
    return json_encode([
        'total' => $limit > 0 ? count($filtered) - $skipped : count($page),
        'items' => $page,
        'newestMsgTime' => $newest,
        'priorityMap' => null,
    ], JSON_UNESCAPED_UNICODE | JSON_UNESCAPED_SLASHES);
}

function processorSeconds(): float
{
    $usage = getrusage();
    return $usage['ru_utime.tv_sec'] + $usage['ru_stime.tv_sec'] +
        ($usage['ru_utime.tv_usec'] + $usage['ru_stime.tv_usec']) / 1e6;
}

[, $root, $name, $parameters, $count] = $argv;
$parameters = json_decode($parameters, true);
$users = new Kept("$root/etc/kivo/users.json", parseUsers(...));
$tags = new Kept("$root/var/cache/texts/enu/mails", parseTags(...));
$database = new SQLite3("$root/var/lib/kivo/nexnotify.db", SQLITE3_OPEN_READWRITE);
echo load($database, $users, $tags, $name, $parameters), "\n";
$seconds = [];
for ($i = 0; $i < $count; ++$i) {
    $start = processorSeconds();
    load($database, $users, $tags, $name, $parameters);
    $seconds[] = processorSeconds() - $start;
}
sort($seconds);
if ($count > 0) {
    echo ($seconds[intdiv($count - 1, 2)] + $seconds[intdiv($count, 2)]) / 2, "\n";
}
