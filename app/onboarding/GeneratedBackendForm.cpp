#include "app/onboarding/GeneratedBackendForm.h"

#include "app/support/ErrorText.h"
#include "app/support/WidgetText.h"
#include "core/onboarding/NativeCredentialConfiguration.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

namespace brimvale {
namespace {

constexpr qsizetype kLongestHelpLabel = 40;

bool shownInForm(const RcloneBackendOption& option) {
    return !option.hiddenFromConfiguration;
}

} // namespace

QString GeneratedBackendForm::labelFor(const RcloneBackendOption& option) {
    QString help = qtText(option.help).section(QLatin1Char('\n'), 0, 0).trimmed();
    if (help.endsWith(QLatin1Char('.'))) {
        help.chop(1);
    }
    if (!help.isEmpty() && help.size() <= kLongestHelpLabel) {
        return help;
    }
    QString name = qtText(option.name).replace(QLatin1Char('_'), QLatin1Char(' '));
    if (!name.isEmpty()) {
        name[0] = name[0].toUpper();
    }
    return name;
}

GeneratedBackendForm::GeneratedBackendForm(RcloneBackend backend, QWidget* parent)
    : QWidget(parent)
    , backend_(std::move(backend)) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* fields = new QWidget(scroll);
    auto* fieldsLayout = new QVBoxLayout(fields);
    fieldsLayout->setContentsMargins(0, 0, 0, 0);
    basic_ = new QFormLayout();
    basic_->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    basic_->setLabelAlignment(Qt::AlignRight);
    fieldsLayout->addLayout(basic_);
    advancedToggle_ = new QToolButton(fields);
    advancedToggle_->setText(tr("Advanced options"));
    advancedToggle_->setAccessibleName(advancedToggle_->text());
    advancedToggle_->setCheckable(true);
    advancedToggle_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    advancedToggle_->setArrowType(Qt::RightArrow);
    advancedToggle_->setAutoRaise(true);
    fieldsLayout->addWidget(advancedToggle_, 0, Qt::AlignLeft);
    advancedBox_ = new QWidget(fields);
    advanced_ = new QFormLayout(advancedBox_);
    advanced_->setContentsMargins(0, 0, 0, 0);
    advanced_->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    advanced_->setLabelAlignment(Qt::AlignRight);
    advancedBox_->hide();
    fieldsLayout->addWidget(advancedBox_);
    fieldsLayout->addStretch(1);
    scroll->setWidget(fields);
    layout->addWidget(scroll, 1);

    bool anyAdvanced = false;
    for (const RcloneBackendOption& option : backend_.options) {
        if (!shownInForm(option)) {
            continue;
        }
        QFormLayout* target = option.advanced ? advanced_ : basic_;
        anyAdvanced = anyAdvanced || option.advanced;
        QWidget* editor = makeEditor(option);
        QString label = labelFor(option);
        if (option.required) {
            label += QStringLiteral(" *");
        }
        auto* labelWidget = new QLabel(label, fields);
        labelWidget->setBuddy(editor);
        target->addRow(labelWidget, editor);
        rows_.push_back({&option, editor, target});
    }
    advancedToggle_->setVisible(anyAdvanced);
    connect(advancedToggle_, &QToolButton::toggled, this, [this](bool open) {
        advancedBox_->setVisible(open);
        advancedToggle_->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
    });

    message_ = new QLabel(this);
    message_->setWordWrap(true);
    message_->setAccessibleName(tr("Form message"));
    layout->addWidget(message_);
    auto* buttons = new QHBoxLayout();
    buttons->addStretch(1);
    submit_ = new QPushButton(qtText(NativeCredentialFormText::submitButtonTitle(
                                  NativeCredentialFormPresentation::addAccountSheet)),
                              this);
    submit_->setDefault(true);
    submit_->setAccessibleName(submit_->text());
    buttons->addWidget(submit_);
    layout->addLayout(buttons);
    connect(submit_, &QPushButton::clicked, this, [this] {
        if (!missingRequired()) {
            emit submitted();
        }
    });
    applyProviderFilter();
}

QWidget* GeneratedBackendForm::makeEditor(const RcloneBackendOption& option) {
    const QString name = qtText(option.name);
    const QString help = qtText(option.help).trimmed();
    QWidget* editor = nullptr;
    if (option.type == "bool") {
        auto* box = new QCheckBox(this);
        box->setChecked(option.defaultText == "true");
        connect(box, &QCheckBox::toggled, this, &GeneratedBackendForm::revalidate);
        editor = box;
    } else if (!option.examples.empty()) {
        auto* combo = new QComboBox(this);
        combo->setEditable(!option.exclusive);
        combo->setInsertPolicy(QComboBox::NoInsert);
        if (!option.required || !option.exclusive) {
            combo->addItem(QString(), QString());
        }
        for (const auto& example : option.examples) {
            const QString value = qtText(example.value);
            const QString exampleHelp = qtText(example.help).section(QLatin1Char('\n'), 0, 0);
            // A fixed list shows what each value means; an open one shows the value to edit.
            combo->addItem(option.exclusive && !exampleHelp.isEmpty() ? exampleHelp : value, value);
            if (!option.exclusive && !exampleHelp.isEmpty() && exampleHelp != value) {
                combo->setItemData(combo->count() - 1, exampleHelp, Qt::ToolTipRole);
            }
        }
        const int defaultIndex = combo->findData(qtText(option.defaultText));
        combo->setCurrentIndex(std::max(defaultIndex, 0));
        connect(combo, &QComboBox::currentTextChanged, this, [this] { applyProviderFilter(); });
        editor = combo;
    } else {
        auto* edit = new QLineEdit(this);
        if (option.isPassword) {
            edit->setEchoMode(QLineEdit::Password);
        }
        if (!option.defaultText.empty()) {
            edit->setPlaceholderText(qtText(option.defaultText));
        }
        connect(edit, &QLineEdit::textChanged, this, &GeneratedBackendForm::revalidate);
        connect(edit, &QLineEdit::returnPressed, this, [this] { submit_->click(); });
        editor = edit;
    }
    editor->setObjectName(name);
    editor->setAccessibleName(labelFor(option));
    // The label shows the help's first sentence at most: the whole help says more.
    if (help != labelFor(option) && help != labelFor(option) + QLatin1Char('.')) {
        editor->setToolTip(help);
    }
    return editor;
}

QWidget* GeneratedBackendForm::editor(const std::string& optionName) const {
    for (const Row& row : rows_) {
        if (row.option->name == optionName) {
            return row.editor;
        }
    }
    return nullptr;
}

void GeneratedBackendForm::setValue(const std::string& optionName, const QString& text) {
    QWidget* widget = editor(optionName);
    if (auto* box = qobject_cast<QCheckBox*>(widget)) {
        box->setChecked(text == QLatin1String("true"));
    } else if (auto* combo = qobject_cast<QComboBox*>(widget)) {
        const int index = combo->findData(text);
        if (index >= 0) {
            combo->setCurrentIndex(index);
        } else if (combo->isEditable()) {
            combo->setEditText(text);
        }
    } else if (auto* edit = qobject_cast<QLineEdit*>(widget)) {
        edit->setText(text);
    }
}

QString GeneratedBackendForm::textOf(const Row& row) const {
    if (const auto* box = qobject_cast<const QCheckBox*>(row.editor)) {
        return box->isChecked() ? QStringLiteral("true") : QStringLiteral("false");
    }
    if (const auto* combo = qobject_cast<const QComboBox*>(row.editor)) {
        if (combo->isEditable()) {
            const int index = combo->findText(combo->currentText());
            return (index >= 0 ? combo->itemData(index).toString() : combo->currentText())
                .trimmed();
        }
        return combo->currentData().toString();
    }
    if (const auto* edit = qobject_cast<const QLineEdit*>(row.editor)) {
        // A password is taken as typed; other texts without the spaces around them.
        return row.option->isPassword ? edit->text() : edit->text().trimmed();
    }
    return {};
}

bool GeneratedBackendForm::applies(const RcloneBackendOption& option) const {
    if (option.provider.empty()) {
        return true;
    }
    std::string chosen;
    for (const Row& row : rows_) {
        if (row.option->name == "provider") {
            chosen = textOf(row).toStdString();
        }
    }
    return RcloneBackends::appliesToProvider(option.provider, chosen);
}

void GeneratedBackendForm::applyProviderFilter() {
    for (const Row& row : rows_) {
        row.layout->setRowVisible(row.editor, applies(*row.option));
    }
    revalidate();
}

GeneratedBackendForm::Values GeneratedBackendForm::values() const {
    Values values;
    for (const Row& row : rows_) {
        if (!applies(*row.option)) {
            continue;
        }
        const QString text = textOf(row);
        if (text.isEmpty() || text == qtText(row.option->defaultText)) {
            continue;
        }
        values.emplace_back(row.option->name, text.toStdString());
    }
    return values;
}

std::optional<QString> GeneratedBackendForm::missingRequired() const {
    for (const Row& row : rows_) {
        if (row.option->required && !row.option->advanced && applies(*row.option) &&
            textOf(row).isEmpty() && row.option->defaultText.empty()) {
            return labelFor(*row.option);
        }
    }
    return std::nullopt;
}

void GeneratedBackendForm::showSubmitError(const QString& message) {
    showingSubmitError_ = !message.isEmpty();
    message_->setText(message);
    useErrorColour(*message_);
}

void GeneratedBackendForm::setBusy(bool busy) {
    busy_ = busy;
    revalidate();
}

void GeneratedBackendForm::revalidate() {
    const auto missing = missingRequired();
    submit_->setEnabled(!busy_ && !missing);
    if (showingSubmitError_ && sender() != nullptr) {
        showingSubmitError_ = false;
    }
    if (showingSubmitError_) {
        return;
    }
    message_->setPalette(QPalette());
    message_->setText(missing ? tr("Enter \u201c%1\u201d.").arg(*missing) : QString());
    message_->setForegroundRole(QPalette::PlaceholderText);
}

} // namespace brimvale
