#!/usr/bin/env python3
"""Sends one small message over SMTP and prints the server's answer in one line.

    smtp_send.py FROM RCPT TOKEN [SOURCE-ADDRESS]

FROM "<>" is the null sender of a bounce. Prints "250" when the message was accepted, otherwise the refusing reply as "CODE TEXT".
The message's subject and body carry TOKEN, so that a test can find where it landed.
"""
import smtplib
import sys


def main():
    sender, rcpt, token = sys.argv[1:4]
    source = sys.argv[4] if len(sys.argv) > 4 else "127.0.0.2"
    if sender == "<>":
        sender = ""
    message = (f"From: <{sender or 'MAILER-DAEMON'}>\r\nTo: <{rcpt}>\r\nSubject: {token}\r\n\r\n"
               f"body of {token}\r\n")
    with smtplib.SMTP("127.0.0.1", 25, source_address=(source, 0), timeout=30) as smtp:
        try:
            smtp.sendmail(sender, [rcpt], message)
            print("250")
        except smtplib.SMTPRecipientsRefused as refused:
            code, text = refused.recipients[rcpt]
            print(code, text.decode(errors="replace"))
        except smtplib.SMTPResponseException as error:
            print(error.smtp_code, error.smtp_error.decode(errors="replace"))


if __name__ == "__main__":
    main()
