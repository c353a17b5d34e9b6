<?php
// Lists the first page of a user's inbox and opens its first message.
//   php list_mail.php INSTALLATION USER [SERVER]     SERVER: -1 none (default), -10 the default account
require __DIR__ . '/Korvane.php';

[$installation, $user, $server] = [(int) ($argv[1] ?? 1), (int) ($argv[2] ?? 1), (int) ($argv[3] ?? -1)];

$boss = Korvane::create('BossObject');
if (!$boss->Init($installation)) {
    exit("The settings cannot be read: error {$boss->GetLastError}\n");
}
$database = Korvane::connect($boss->DbConnectionString);
$boss->Init2($database);

$web = Korvane::create('WebInterface');
$web->ConnDataBase = $database;
$web->UserId = $user;
if (!$web->Init($boss)) {
    exit("The user's account cannot be loaded: error {$web->GetLastError}\n");
}

$pages = new KorvaneRef(0);
$mails = new KorvaneRef(0);
$page = $web->GetListMessagesInBox(1, $server, lPageNum: 1, lTotPages: $pages, lTotMails: $mails);
if ($web->GetLastError !== 0) {
    echo "Stored mail only: error {$web->GetLastError} ({$web->GetLastErrorDesc})\n";
}
echo "Page 1 of {$pages->value}, {$mails->value} messages\n";
for ($i = 1; $i <= $page->Count; $i++) {
    $message = $page->ItemIndex($i);
    printf("%6d  %-19s  %-24.24s  %s\n", $message->Id, $message->ReceivedDate, $message->FromName, $message->Subject(0));
}

if ($page->Count > 0 && $message = $web->GetMessage($page->ItemIndex(1)->Id)) {
    $text = new KorvaneRef('');
    $message->MessageBody($text, taAlternativeType: 1, tfTextFormat: 0);
    echo "\n", $message->Subject(0), "\n\n", $text->value, "\n";
}
