#include "CodeComboBox.h"

#include "l10n/CodeNames.h"
#include "l10n/Strings.h"
#include "model/Region.h"

#include <QCollator>
#include <QCompleter>
#include <QLineEdit>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

CodeComboBox::CodeComboBox(Kind kind, QWidget* parent) : QComboBox(parent)
{
    const Language language = Strings::interfaceLanguage();
    QList<std::pair<QString, QString>> entries; // shown text, code
    if (kind == Kind::country) {
        for (const Country& country : Region::supportedCountries())
            entries.append({CodeNames::countryName(country, language), country.code});
    } else {
        for (const Currency& currency : CodeNames::currencies())
            entries.append(
                {currency.code + u" – "_s + CodeNames::currencyName(currency, language), currency.code});
    }
    QCollator collator(QLocale(language == Language::german ? QLocale::German : QLocale::English));
    std::sort(entries.begin(), entries.end(),
              [&](const auto& a, const auto& b) { return collator.compare(a.first, b.first) < 0; });
    for (const auto& [text, code] : entries)
        addItem(text, code);
    setEditable(true);
    setInsertPolicy(QComboBox::NoInsert);
    completer()->setCompletionMode(QCompleter::PopupCompletion);
    completer()->setFilterMode(Qt::MatchContains);
    completer()->setCaseSensitivity(Qt::CaseInsensitive);
    setMaxVisibleItems(16);
    connect(this, &QComboBox::activated, this,
            [this](int index) { Q_EMIT codeChosen(itemData(index).toString()); });
    // A name typed in full and confirmed with Enter or by leaving the field counts as a choice.
    connect(lineEdit(), &QLineEdit::editingFinished, this, [this] {
        const int found = findText(lineEdit()->text(), Qt::MatchFixedString);
        if (found >= 0 && itemData(found).toString() != code()) {
            setCurrentIndex(found);
            Q_EMIT codeChosen(itemData(found).toString());
        } else {
            setCurrentIndex(currentIndex()); // shows the chosen entry again
        }
    });
}

QString CodeComboBox::code() const
{
    return currentData().toString();
}

void CodeComboBox::setCode(const QString& code)
{
    int index = findData(code);
    if (index < 0 && !code.isEmpty()) {
        addItem(code, code);
        index = count() - 1;
    }
    setCurrentIndex(index);
}
