<?php
// The pages "page" and "sign-in" of ../requests/plugin.cpp.
header('Content-Type: text/html; charset=utf-8');
header('Cache-Control: no-store');
header('X-Content-Type-Options: nosniff');
if ($_GET['p'] === 'sign-in') {
    session_start();
    $_SESSION['user'] = 'admin';
    exit;
}
session_start(['read_and_close' => true]);
if (!isset($_SESSION['user']))
    http_response_code(403);
echo str_repeat('x', 1024);
